#pragma once
// The Rules Manager over real parts: a profile is a copy of the blank rule
// database opened by a real OutAddIn, a real Maildir store (Inbox, Archive)
// behind a namespace, and the engine's runner over both. Message boxes and
// file dialogs are scripted; a modal dialog goes to the test's `onModal`,
// and any error report the test did not expect fails it.

#include "RulePropsFixture.h"

#include "forms/ContactPicker.h"
#include "forms/frmRulesMain.h"

#include "addin/OutAddIn.h"
#include "engine/RuleExecutor.h"
#include "engine/RuleRunner.h"
#include "platform/common/ProgIdRegistry.h"
#include "platform/os/Clock.h"
#include "platform/os/ErrorReport.h"
#include "platform/os/FileDialog.h"
#include "platform/os/MessageBox.h"
#include "platform/os/Shell.h"
#include "platform/os/TimeZone.h"
#include "platform/outlook/FolderPicker.h"
#include "platform/outlook/store/StoreNameSpace.h"
#include "platform/stores/maildir/MaildirStore.h"

#include <QAbstractButton>
#include <QTemporaryDir>
#include <QTreeWidget>
#include <QVariantMap>

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <ostream>

QT_BEGIN_NAMESPACE
inline void PrintTo(const QString& s, std::ostream* os)
{
    *os << '"' << s.toStdString() << '"';
}
inline void PrintTo(const QStringList& l, std::ostream* os)
{
    *os << '{' << l.join(QStringLiteral(" | ")).toStdString() << '}';
}
QT_END_NAMESPACE

namespace mv::test {

struct Profile {
    QString dir;
    QString dbPath;
    std::unique_ptr<stores::maildir::MaildirStore> store;
    std::unique_ptr<outlook::StoreNameSpace> ns;
    std::unique_ptr<addin::OutAddIn> addIn;
    std::unique_ptr<engine::RuleExecutor> exec;
    std::unique_ptr<engine::RuleRunner> runner;
};

class RulesMainFixture : public ::testing::Test {
protected:
    void SetUp() override;
    void TearDown() override;

    // A profile in its own folder under the temporary one.
    std::unique_ptr<Profile> MakeProfile(const QString& name);
    // The Rules Manager of `profile` (default: the first), loaded and shown.
    std::unique_ptr<forms::frmRulesMain> Open(Profile* profile = nullptr);

    // A rule row written directly into `profile`'s database; returns its RuleID.
    int AddRule(const QString& name, int sortId, bool active, const QString& subject = {},
                Profile* profile = nullptr);
    void AddMail(const QString& folder, const QString& subject, Profile* profile = nullptr);
    QStringList Subjects(const QString& folder, Profile* profile = nullptr);
    QString FolderHex(const QString& folder, Profile* profile = nullptr);
    QString StoreHex(Profile* profile = nullptr);

    // A statement run directly on `profile`'s database file.
    void Sql(const QString& statement, Profile* profile = nullptr);
    QList<QVariantMap> Rows(const QString& sql, Profile* profile = nullptr);
    // Names in SortID order (ties by RuleID).
    QStringList StoredOrder(Profile* profile = nullptr);

    static QTreeWidget* List(forms::frmRulesMain& form);
    static QAbstractButton* Button(forms::frmRulesMain& form, const char* name);
    static QStringList ListNames(forms::frmRulesMain& form);
    static void Select(forms::frmRulesMain& form, std::initializer_list<int> rows);
    // Enabled buttons among `names`, joined by " ".
    static QString Enabled(forms::frmRulesMain& form, std::initializer_list<const char*> names);

    QTemporaryDir m_tmp;
    ProgIdRegistry m_progIds;
    os::ScriptedAnswerer m_answerer;
    os::ErrorReport m_report{m_answerer};
    os::ScriptedFileDialog m_files;
    os::FakeClock m_clock{QDateTime(QDate(2026, 11, 14), QTime(10, 0), Qt::UTC)};
    os::FixedTimeZone m_zone;
    ScriptedFolderPicker m_picker;
    forms::NoContactPicker m_contacts;
    bool m_cancel = false;
    std::unique_ptr<Profile> m_p;
    // Receives every modal dialog; unset: a modal dialog fails the test.
    std::function<void(QDialog&)> onModal;
    os::Shell* m_shell = nullptr;
    int m_expectedReports = 0;
};

}  // namespace mv::test
