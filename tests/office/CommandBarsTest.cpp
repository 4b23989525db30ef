// Command bars as the toolbar builder drives them: lookups that fail, the
// order of controls, deletion while a click is being handled, and faces
// pasted from the clipboard.

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

    CommandBar* custom = bars.Add("");
    ASSERT_NE(custom, nullptr);
    EXPECT_FALSE(custom->Name().isEmpty());

    // A popup has its own controls, a button none; setters signal only changes.
    CommandBarControl* popup = bars.Add("Tools", msoBarTop, true)->Controls()->Add(msoControlPopup, 0, {}, 0, true);
    ASSERT_NE(popup->Controls(), nullptr);
    EXPECT_EQ(bars.Item("Tools")->Controls()->Add()->Controls(), nullptr);
    popup->Controls()->Add()->SetCaption("Rules Manager...");
    EXPECT_EQ(popup->Controls()->Item(1)->Caption(), "Rules Manager...");
    QSignalSpy changed(popup, &CommandBarControl::Changed);
    popup->SetCaption("Mailvane");
    popup->SetCaption("Mailvane");
    popup->SetBeginGroup(true);
    popup->SetTag("not drawn");
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

    while (controls.Count() > 0) controls.Item(1)->Delete();
    EXPECT_EQ(controls.Count(), 0);
    RunDeferredDeletes();

    // A control destroyed directly leaves the list too.
    delete controls.Add();
    EXPECT_EQ(controls.Count(), 0);
}

QByteArray Encode(const QImage& image, const char* format)
{
    QByteArray bytes;
    QBuffer buffer(&bytes);
    buffer.open(QIODevice::WriteOnly);
    image.save(&buffer, format);
    return bytes;
}

TEST_F(CommandBarsTest, PasteFaceMakesMaskColourTransparent)
{
    // A 16x16 picture: magenta background, one red square in the middle.
    QImage picture(16, 16, QImage::Format_RGB32);
    picture.fill(QColor(255, 0, 255));
    for (int y = 4; y < 12; ++y)
        for (int x = 4; x < 12; ++x) picture.setPixel(x, y, qRgb(200, 0, 0));

    CommandBarControl* button = bars.Add("Mailvane")->Controls()->Add();
    EXPECT_FALSE(button->PasteFace()) << "empty clipboard";
    EXPECT_TRUE(button->Face().isNull());

    clipboard.SetData("text/plain", "what the user copied");
    const auto saved = clipboard.Save();
    ASSERT_TRUE(PutFaceOnClipboard(clipboard, picture));
    QSignalSpy changed(button, &CommandBarControl::Changed);
    ASSERT_TRUE(button->PasteFace());
    EXPECT_EQ(changed.count(), 1);
    const QImage face = button->Face();
    ASSERT_EQ(face.size(), QSize(16, 16));
    EXPECT_EQ(qAlpha(face.pixel(0, 0)), 0);
    EXPECT_EQ(qAlpha(face.pixel(15, 15)), 0);
    EXPECT_EQ(face.pixel(8, 8), qRgba(200, 0, 0, 255));
    EXPECT_EQ(clipboard.Data("text/plain"), "what the user copied");

    // A face written by someone else as BMP, with no mask: opaque.
    clipboard.Clear();
    clipboard.SetData(os::kFaceFormat, Encode(picture, "BMP"));
    ASSERT_TRUE(button->PasteFace());
    EXPECT_EQ(button->Face().pixel(0, 0), qRgba(255, 0, 255, 255));

    // Bytes that are no image leave the face it had.
    clipboard.SetData(os::kFaceFormat, "not an image");
    EXPECT_FALSE(button->PasteFace());
    EXPECT_FALSE(button->Face().isNull());

    EXPECT_FALSE(PutFaceOnClipboard(clipboard, QImage()));
    // The snapshot taken before brings back what the user had.
    clipboard.Restore(saved);
    EXPECT_EQ(clipboard.Data("text/plain"), "what the user copied");
    EXPECT_TRUE(clipboard.Data(os::kFaceFormat).isEmpty());
}

}  // namespace
}  // namespace mv::test
