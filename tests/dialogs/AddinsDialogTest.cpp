// The COM Add-ins dialog over a real registry file and the real add-in:
// unchecking disconnects it as a user removal, checking brings it back.

#include "host/dialogs/AddinsDialog.h"

#include "host/core/AddinLoader.h"
#include "tests/addin/AddInFixture.h"

#include <QLabel>
#include <QListWidget>
#include <QPushButton>

namespace mv::test {

using namespace Qt::StringLiterals;
namespace {

class AddinsDialogTest : public AddInTest {
protected:
    void SetUp() override
    {
        AddInTest::SetUp();
        addin::RegisterConnect(m_progIds, Services());
        ASSERT_TRUE(host::RegisterMailvaneAddin(m_registry));
        m_app->Open();
    }
    QString Key(const char* progId) const { return QString::fromLatin1(host::kAddinsKey) + u'\\' + progId; }
    quint32 LoadBehavior(const char* progId) const
    {
        auto v = m_registry.ReadDword(Key(progId), u"LoadBehavior"_s);
        return v ? *v : 0;
    }
    static QListWidgetItem* Row(host::AddinsDialog& dialog, const QString& text)
    {
        const auto found = dialog.findChild<QListWidget*>("lstAddins")->findItems(text, Qt::MatchExactly);
        return found.isEmpty() ? nullptr : found.front();
    }
    static void ClickOk(host::AddinsDialog& dialog) { dialog.findChild<QPushButton*>("btnOK")->click(); }

    os::Registry m_registry{m_dir.filePath(u"registry.ini"_s)};
};

// Another add-in is registered but has no component: checking it keeps the
// dialog open with the reason.
TEST_F(AddinsDialogTest, UncheckingRemovesMailvaneCheckingBringsItBackAndAFailureKeepsTheDialogOpen)
{
    const QString other = Key("Other.Connect");
    ASSERT_TRUE(m_registry.WriteString(other, u"FriendlyName"_s, u"Other Add-In"_s));
    ASSERT_TRUE(m_registry.WriteDword(other, u"LoadBehavior"_s, 2));
    host::AddinLoader loader(m_registry, m_progIds, *m_app);
    ASSERT_EQ(loader.Connect(), 1);
    office::CommandBars* bars = m_app->ActiveExplorer()->CommandBars();
    ASSERT_NE(bars->Item("Mailvane"), nullptr);

    for (const auto& [from, to, shown] : {std::tuple{Qt::Checked, Qt::Unchecked, "Load at Startup"},
                                         std::tuple{Qt::Unchecked, Qt::Checked, "Unloaded"}}) {
        host::AddinsDialog dialog(loader);
        QListWidgetItem* row = Row(dialog, "Mailvane Add-In");
        ASSERT_NE(row, nullptr);
        EXPECT_EQ(row->checkState(), from);
        EXPECT_EQ(dialog.findChild<QLabel*>("lblLoadBehavior")->text(), shown);
        row->setCheckState(to);
        ClickOk(dialog);
        EXPECT_EQ(dialog.result(), QDialog::Accepted);
        if (to == Qt::Checked) break;
        EXPECT_TRUE(loader.Connected().isEmpty());
        EXPECT_EQ(LoadBehavior("Mailvane.Connect"), 2u);
        DeleteLater();
    }
    EXPECT_EQ(loader.Connected(), QStringList{"Mailvane.Connect"});
    EXPECT_EQ(LoadBehavior("Mailvane.Connect"), 3u);
    EXPECT_NE(bars->Item("Mailvane"), nullptr) << "connected again, it builds its toolbar";
    EXPECT_TRUE(m_answerer.shown().empty()) << m_answerer.texts().join(u'|').toStdString();

    host::AddinsDialog dialog(loader);
    QListWidgetItem* row = Row(dialog, "Other Add-In");
    ASSERT_NE(row, nullptr);
    EXPECT_EQ(row->checkState(), Qt::Unchecked);
    row->setCheckState(Qt::Checked);
    dialog.show();
    ClickOk(dialog);
    EXPECT_TRUE(dialog.isVisible()) << "the dialog stays open";
    auto* error = dialog.findChild<QLabel*>("lblError");
    EXPECT_TRUE(error->isVisibleTo(&dialog));
    EXPECT_TRUE(error->text().startsWith("Could not connect Other Add-In.")) << error->text().toStdString();
    EXPECT_TRUE(error->text().contains("no component")) << error->text().toStdString();
    EXPECT_EQ(Row(dialog, "Other Add-In")->checkState(), Qt::Unchecked);
    EXPECT_EQ(LoadBehavior("Other.Connect"), 2u) << "not tried again at the next start";
    EXPECT_EQ(loader.Connected(), QStringList{"Mailvane.Connect"}) << "the others are left alone";
}

}  // namespace
}  // namespace mv::test
