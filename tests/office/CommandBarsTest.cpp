// Command bars as the toolbar builder drives them: lookups that fail, the
// order of controls, deletion while a click is being handled, and faces
// that cannot be pasted.

#include "platform/office/CommandBars.h"

#include <QBuffer>
#include <QCoreApplication>
#include <QEvent>
#include <QSignalSpy>

#include <gtest/gtest.h>

namespace mv::test {
namespace {

using namespace mv::office;

QStringList Captions(const CommandBarControls& controls)
{
    QStringList list;
    for (int i = 1; i <= controls.Count(); ++i) list << controls.Item(i)->Caption();
    return list;
}

void RunDeferredDeletes() { QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete); }

class CommandBarsTest : public ::testing::Test {
protected:
    os::MemoryClipboard clipboard;
    CommandBars bars{&clipboard};
};

TEST_F(CommandBarsTest, BarsAreFoundWithoutRegardToCaseUntilDeleted)
{
    EXPECT_EQ(bars.Item("Mailvane"), nullptr);
    QSignalSpy added(&bars, &CommandBars::BarAdded);
    CommandBar* bar = bars.Add("Mailvane", msoBarTop, false, true);
    ASSERT_NE(bar, nullptr);
    EXPECT_EQ(added.count(), 1);
    EXPECT_EQ(bars.Item("MAILVANE"), bar);
    EXPECT_EQ(bars.Add("mailvane"), nullptr) << "a second bar of the same name";
    EXPECT_EQ(bars.Count(), 1);
    EXPECT_FALSE(bar->Visible()) << "a new bar stays hidden until the caller shows it";

    QSignalSpy removed(&bars, &CommandBars::BarRemoved);
    QPointer<CommandBar> watch(bar);
    bar->Delete();
    EXPECT_EQ(bars.Item("Mailvane"), nullptr) << "gone from lookups at once";
    EXPECT_EQ(removed.count(), 1);
    RunDeferredDeletes();
    EXPECT_TRUE(watch.isNull());
    EXPECT_NE(bars.Add("Mailvane"), nullptr) << "the name is free again";

    EXPECT_FALSE(bars.Add("")->Name().isEmpty()) << "a bar without a name is given one";

    // Popups are the desktop renderer's test; a button has no controls, and
    // its setters signal only changes.
    CommandBarControl* button = bars.Add("Tools")->Controls()->Add();
    EXPECT_EQ(button->Controls(), nullptr);
    QSignalSpy changed(button, &CommandBarControl::Changed);
    button->SetCaption("Mailvane");
    button->SetCaption("Mailvane");
    button->SetBeginGroup(true);
    button->SetTag("not drawn");
    EXPECT_EQ(changed.count(), 2);
}

TEST_F(CommandBarsTest, ControlsAddHonoursBefore)
{
    CommandBarControls& controls = *bars.Add("Mailvane")->Controls();
    const struct {
        const char* caption;
        int before;
        const char* expected;
    } steps[] = {{"A", 0, "A"}, {"B", 0, "A,B"}, {"C", 1, "C,A,B"}, {"D", 3, "C,A,D,B"},
                 {"E", 5, "C,A,D,B,E"},  // one past the end: out of range, appended
                 {"F", 99, "C,A,D,B,E,F"}, {"G", -1, "C,A,D,B,E,F,G"}};
    for (const auto& s : steps) {
        controls.Add(msoControlButton, 0, {}, s.before, true)->SetCaption(s.caption);
        EXPECT_EQ(Captions(controls).join(','), s.expected) << "after adding " << s.caption;
    }
    EXPECT_EQ(controls.Item(0), nullptr);
    EXPECT_EQ(controls.Item(controls.Count() + 1), nullptr);
}

TEST_F(CommandBarsTest, DeleteRemovesAtOnceEvenFromItsOwnClick)
{
    CommandBarControls& controls = *bars.Add("Mailvane")->Controls();
    for (const char* c : {"One", "Two", "Three"}) controls.Add()->SetCaption(c);

    // The toolbar builder empties an existing bar one control at a time.
    CommandBarControl* two = controls.Item(2);
    int clicks = 0;
    QObject::connect(two, &CommandBarControl::Click, [&](CommandBarControl* self, bool&) {
        ++clicks;
        self->Delete();
    });
    QPointer<CommandBarControl> watch(two);
    two->Execute();
    EXPECT_EQ(clicks, 1);
    EXPECT_EQ(Captions(controls).join(','), "One,Three");
    EXPECT_FALSE(watch.isNull()) << "deleted only after the click returned";
    RunDeferredDeletes();
    EXPECT_TRUE(watch.isNull());

    // A control destroyed directly leaves the list too.
    delete controls.Add();
    EXPECT_EQ(Captions(controls).join(','), "One,Three");
}

QByteArray Encode(const QImage& image, const char* format)
{
    QByteArray bytes;
    QBuffer buffer(&bytes);
    buffer.open(QIODevice::WriteOnly);
    image.save(&buffer, format);
    return bytes;
}

// The magenta mask pasted as the toolbar builder does it is the add-in's
// toolbar test; here the faces that are not that.
TEST_F(CommandBarsTest, PasteFaceOfNothingOrOfAnUnmaskedBmpOrOfNoImage)
{
    CommandBarControl* button = bars.Add("Mailvane")->Controls()->Add();
    EXPECT_FALSE(button->PasteFace()) << "empty clipboard";
    EXPECT_FALSE(PutFaceOnClipboard(clipboard, QImage()));
    EXPECT_TRUE(button->Face().isNull());

    // A face written by someone else as BMP, with no mask: opaque.
    QImage picture(16, 16, QImage::Format_RGB32);
    picture.fill(QColor(255, 0, 255));
    clipboard.SetData(os::kFaceFormat, Encode(picture, "BMP"));
    QSignalSpy changed(button, &CommandBarControl::Changed);
    ASSERT_TRUE(button->PasteFace());
    EXPECT_EQ(changed.count(), 1);
    EXPECT_EQ(button->Face().pixel(0, 0), qRgba(255, 0, 255, 255));

    // Bytes that are no image leave the face it had.
    clipboard.SetData(os::kFaceFormat, "not an image");
    EXPECT_FALSE(button->PasteFace());
    EXPECT_FALSE(button->Face().isNull());
}

}  // namespace
}  // namespace mv::test
