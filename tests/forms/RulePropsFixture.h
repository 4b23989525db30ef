#pragma once
// The rule editor over a real rule database (a copy of the blank template)
// and a memory store behind a real namespace. Folder and contact pickers are
// scripted; any error report shown during a test fails it.

#include "forms/ContactPicker.h"
#include "forms/frmRuleProps.h"

#include "platform/common/ProgIdRegistry.h"
#include "platform/os/ErrorReport.h"
#include "platform/os/MessageBox.h"
#include "platform/outlook/FolderPicker.h"
#include "platform/outlook/store/StoreNameSpace.h"
#include "platform/stores/memory/MemoryStore.h"
#include "store/cDB.h"

#include <QComboBox>
#include <QLineEdit>
#include <QPushButton>
#include <QTemporaryDir>
#include <QVariantMap>

#include <gtest/gtest.h>

#include <deque>

namespace mv::test {

class ScriptedFolderPicker : public outlook::FolderPicker {
public:
    std::deque<std::unique_ptr<outlook::Folder>> answers;  // nullptr = the user cancels
    int calls = 0;
    std::unique_ptr<outlook::Folder> Pick(outlook::NameSpace&) override
    {
        ++calls;
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

class RulePropsFixture : public ::testing::Test {
protected:
    void SetUp() override;
    void TearDown() override;

    // A fresh editor in `action` mode, loaded (Form_Load has run).
    std::unique_ptr<forms::frmRuleProps> Open(const QString& action, int ruleId = 0,
                                               const QString& hostVersion = QStringLiteral("11.0"),
                                               bool load = true);
    // Fills name and both folders so only the criteria decide the checks.
    void FillRequired(forms::frmRuleProps& form);

    template <typename W>
    static W* Find(forms::frmRuleProps& form, const char* name)
    {
        W* w = form.findChild<W*>(QString::fromLatin1(name));
        EXPECT_NE(w, nullptr) << name;
        return w;
    }
    static void SetText(forms::frmRuleProps& form, const char* name, const QString& text)
    {
        Find<QLineEdit>(form, name)->setText(text);
    }
    static void Choose(forms::frmRuleProps& form, const char* list, const QString& label);
    static void Click(forms::frmRuleProps& form, const char* button) { Find<QPushButton>(form, button)->click(); }

    // Direct SQL on the database file, apart from the code under test.
    void Sql(const QString& statement);
    QList<QVariantMap> Rows(const QString& sql);
    int RuleCount() { return Rows(QStringLiteral("SELECT * FROM Rules")).size(); }
    // A rule row written directly; returns its RuleID.
    int AddRule(const QString& name, const QString& extraColumns = {}, const QString& extraValues = {});

    QTemporaryDir m_tmp;
    QString m_dbPath;
    ProgIdRegistry m_progIds;
    os::ScriptedAnswerer m_answerer;
    std::unique_ptr<os::ErrorReport> m_report;
    std::unique_ptr<store::cDB> m_db;
    std::unique_ptr<stores::MemoryStore> m_store;
    std::unique_ptr<outlook::StoreNameSpace> m_ns;
    ScriptedFolderPicker m_picker;
    ScriptedContacts m_contacts;
    std::unique_ptr<outlook::Folder> m_inbox, m_archive;
    int m_expectedReports = 0;
};

}  // namespace mv::test
