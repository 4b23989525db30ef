#pragma once
// The forms over real parts. A profile is a copy of the blank rule database
// opened by a real OutAddIn, two real Maildir accounts behind one namespace
// ("Home": Inbox, Sent, Archive, Archive/2026; "Work": Inbox, Projects) and
// the engine's runner over them. Message boxes, file dialogs and the folder
// and contact pickers are scripted; the Rules Manager's modal dialogs go to
// `onModal`. An error report or a question the test did not expect fails it.

#include "tests/support/QtPrinters.h"

#include "forms/ContactPicker.h"
#include "forms/frmRuleProps.h"
#include "forms/frmRulesMain.h"

#include "addin/OutAddIn.h"
#include "engine/RuleExecutor.h"
#include "engine/RuleRunner.h"
#include "platform/common/ProgIdRegistry.h"
#include "platform/os/Clock.h"
#include "platform/os/ErrorReport.h"
#include "platform/os/FileDialog.h"
#include "platform/os/MessageBox.h"
#include "platform/os/TimeZone.h"
#include "platform/outlook/FolderPicker.h"
#include "platform/outlook/Windows.h"
#include "platform/outlook/store/StoreNameSpace.h"
#include "platform/stores/maildir/MaildirStore.h"

#include <QAbstractButton>
#include <QApplication>
#include <QComboBox>
#include <QLineEdit>
#include <QPushButton>
#include <QTemporaryDir>
#include <QTimer>
#include <QTreeWidget>
#include <QVariantMap>

#include <gtest/gtest.h>

#include <deque>
#include <functional>
#include <memory>

namespace mv::test {

using namespace Qt::StringLiterals;

class ScriptedFolderPicker : public outlook::FolderPicker {
public:
    std::deque<std::unique_ptr<outlook::Folder>> answers;  // nullptr = the user cancels
    std::unique_ptr<outlook::Folder> Pick(outlook::NameSpace&) override
    {
        if (answers.empty()) return nullptr;
        auto f = std::move(answers.front());
        answers.pop_front();
        return f;
    }
};

class ScriptedContacts : public forms::ContactPicker {
public:
    std::vector<forms::AddressBookEntry> entries;
    QString lastTitle;
    std::vector<forms::AddressBookEntry> AddressBook(const QString& title) override
    {
        lastTitle = title;
        return entries;
    }
};

// The host's Explorer reduced to what the smart forms ask of it: the
// selected message and the folder shown. No window exists.
class SelectionExplorer : public outlook::Explorer {
public:
    explicit SelectionExplorer(outlook::NameSpace& ns) : m_ns(ns) {}
    QString itemEntry, itemStore, folderEntry, folderStore;
    office::CommandBars* CommandBars() override { return nullptr; }
    std::vector<std::unique_ptr<outlook::Item>> Selection() override;
    int SelectionCount() override { return itemEntry.isEmpty() ? 0 : 1; }
    std::unique_ptr<outlook::Folder> CurrentFolder() override
    {
        return m_ns.GetFolderFromID(folderEntry, folderStore);
    }
    void Close() override {}

private:
    outlook::NameSpace& m_ns;
};

struct Profile {
    QString dir;
    QString dbPath;
    std::unique_ptr<stores::maildir::MaildirStore> home, work;
    std::unique_ptr<outlook::StoreNameSpace> ns;
    std::unique_ptr<addin::OutAddIn> addIn;
    std::unique_ptr<engine::RuleExecutor> exec;
    std::unique_ptr<engine::RuleRunner> runner;
};

class FormsTest : public ::testing::Test {
protected:
    void SetUp() override;
    void TearDown() override;

    // A profile in its own folder under the temporary one.
    std::unique_ptr<Profile> MakeProfile(const QString& name);
    Profile& P(Profile* p) { return p ? *p : *m_p; }

    forms::RulePropsContext Context(const QString& hostVersion = u"11.0"_s);
    // A rule editor in `action` mode over the first profile, loaded unless told otherwise.
    std::unique_ptr<forms::frmRuleProps> OpenEditor(const QString& action, int ruleId = 0,
                                                    const QString& hostVersion = u"11.0"_s, bool load = true);
    // The Rules Manager of `profile`, loaded and shown.
    std::unique_ptr<forms::frmRulesMain> OpenManager(Profile* profile = nullptr);
    // Picks Home's Inbox and Archive through the editor's browse buttons and names the rule.
    void FillRequired(forms::frmRuleProps& editor, Profile* profile = nullptr);

    // A folder of Home (or `store`) by its display path.
    std::unique_ptr<outlook::Folder> Folder(const QString& path,
                                            stores::maildir::MaildirStore* store = nullptr,
                                            Profile* profile = nullptr);
    // Appends a message; returns its hex entry identifier.
    QString Deliver(const QString& folder, const QByteArray& rfc822,
                    stores::maildir::MaildirStore* store = nullptr);
    void AddMail(const QString& folder, const QString& subject, Profile* profile = nullptr);
    QStringList Subjects(const QString& folder, Profile* profile = nullptr);
    // An Explorer showing Home's `folder` with `entryHex` selected.
    std::unique_ptr<SelectionExplorer> ExplorerOn(const QString& folder, const QString& entryHex);

    // Direct SQL on a profile's database file, apart from the code under test.
    void Sql(const QString& statement, Profile* profile = nullptr) { Rows(statement, profile); }
    QList<QVariantMap> Rows(const QString& sql, Profile* profile = nullptr);
    int RuleCount() { return int(Rows(u"SELECT RuleID FROM Rules"_s).size()); }
    // Names in SortID order (ties by RuleID).
    QStringList StoredOrder(Profile* profile = nullptr);
    // An active rule moving Home's Inbox to Archive, last in the order, no
    // criteria but `set` (an SQL SET clause applied after); returns its RuleID.
    int AddRule(const QString& name, const QString& set = {}, Profile* profile = nullptr);

    template <typename W = QWidget>
    static W* Child(const QObject& parent, const char* name)
    {
        W* w = parent.findChild<W*>(QString::fromLatin1(name));
        EXPECT_NE(w, nullptr) << name;
        return w;
    }
    static QString Text(const QObject& w, const char* name) { return Child<QLineEdit>(w, name)->text(); }
    static QString Shown(const QObject& w, const char* list)
    {
        return Child<QComboBox>(w, list)->currentText();
    }
    static void SetText(const QObject& w, const char* name, const QString& s)
    {
        Child<QLineEdit>(w, name)->setText(s);
    }
    static void Choose(const QObject& parent, const char* list, const QString& label);
    static void Click(const QObject& w, const char* button) { Child<QAbstractButton>(w, button)->click(); }
    // The Rules Manager's list.
    static QTreeWidget* List(const QObject& form) { return Child<QTreeWidget>(form, "ListView1"); }
    static QStringList ListNames(const QObject& form);
    static void Select(const QObject& form, std::initializer_list<int> rows);
    // Enabled buttons among `names`, joined by " ".
    static QString Enabled(const QObject& form, std::initializer_list<const char*> names);

    // Runs `body` on the modal dialog of type W once the next exec() shows it;
    // rejects it if `body` leaves it open, so a failed expectation never hangs.
    template <typename W, typename F>
    static void WhenShown(F body)
    {
        QTimer::singleShot(0, [body]() mutable {
            auto* w = qobject_cast<W*>(QApplication::activeModalWidget());
            if (!w) {
                ADD_FAILURE() << "no modal " << W::staticMetaObject.className();
                if (QWidget* other = QApplication::activeModalWidget()) other->close();
                return;
            }
            body(*w);
            if (w->isVisible()) w->reject();
        });
    }

    QTemporaryDir m_tmp;
    ProgIdRegistry m_progIds;
    os::ScriptedAnswerer m_answerer;
    os::ErrorReport m_report{m_answerer};
    os::ScriptedFileDialog m_files;
    os::FakeClock m_clock{QDateTime(QDate(2026, 11, 14), QTime(10, 0), Qt::UTC)};
    os::FixedTimeZone m_zone;
    ScriptedFolderPicker m_picker;
    ScriptedContacts m_contacts;
    bool m_cancel = false;
    std::unique_ptr<Profile> m_p;
    // Receives the Rules Manager's modal dialogs; unset: one fails the test.
    std::function<void(QDialog&)> onModal;
    os::Shell* m_shell = nullptr;
    int m_expectedReports = 0;
};

}  // namespace mv::test
