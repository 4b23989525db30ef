#pragma once
// Turns imported rules into rows of the Rules table, as the ordinary
// import appends them: folders named by path are found in (or, when asked,
// created in) the target store, folders named by identifier are kept when
// this profile has them, "older than N days" becomes the MsgAge row of that
// length, unset criteria get their "no criterion" codes and SortIDs follow
// the rules already there. What does not resolve joins the rule's
// unmapped lines; a rule with any unmapped line is written switched off
// (Active 0), so nothing half-understood moves mail before its owner looks.

#include "ImportedRule.h"

#include "platform/ado/RowsetData.h"
#include "platform/common/Error.h"
#include "platform/mapi/MessageStore.h"
#include "platform/outlook/store/StoreNameSpace.h"

#include <vector>

namespace mv::importers {

struct AgeWindowRow {
    int msgAgeId;
    QString timeField;
    int timeDiff;
};

class RuleImportWriter {
public:
    // The stores must outlive the writer; `target` is one of `stores`.
    RuleImportWriter(mapi::MessageStore& target, std::vector<mapi::MessageStore*> stores,
                     std::vector<AgeWindowRow> ageWindows, bool createFolders);

    // The rows for `rules` with the columns of `schema` (a recordset of the
    // Rules table), SortIDs from `firstSortId` on. Adds to each rule's
    // unmapped what did not resolve. Fails when the target store cannot
    // list its folders, or has no Inbox for rules that need one.
    Result<ado::RowsetData> Rows(ImportedRules& rules, const ado::RowsetData& schema, int firstSortId);

    // Folder paths created, and those missing (not created), in the target store.
    const QStringList& Created() const { return m_created; }
    const QStringList& Missing() const { return m_missing; }

private:
    // The folder's identifier in the target store; empty (with a line in
    // `unmapped`) when it neither exists nor could be created.
    Result<QByteArray> ByPath(const QString& path, QStringList& unmapped);
    QByteArray Find(const QString& path) const;
    // Hexadecimal entry and store identifiers for one folder of a rule.
    Result<std::pair<QString, QString>> Resolve(const ForeignFolder& folder, const char* role,
                                                QStringList& unmapped);
    std::optional<int> AgeWindow(const ImportedRule& rule, QStringList& unmapped) const;

    mapi::MessageStore& m_target;
    // Stored identifiers are looked up as a run looks them up.
    outlook::StoreNameSpace m_stores;
    std::vector<AgeWindowRow> m_ages;
    bool m_createFolders;
    std::vector<mapi::FolderInfo> m_folders;
    QStringList m_created, m_missing;
};

}  // namespace mv::importers
