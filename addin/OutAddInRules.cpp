#include "OutAddIn.h"

#include "store/VbConvert.h"

#include "platform/ado/AdoConstants.h"
#include "platform/ado/AdoError.h"
#include "platform/os/ErrorReport.h"
#include "platform/outlook/Folder.h"

namespace mv::addin {

namespace {

const QString kDefaultRuleInsert = QStringLiteral(
    "INSERT INTO [Rules] ([RuleName], [FromAddress], [ToAddress], [CcAddress], [Subject], [Importance], "
    "[Status], [FlagStatus], [MsgAgeID], [SrcEntryID], [SrcStoreID], [DstEntryID], [DstStoreID], [SortID], "
    "[LastVerb], [Message])VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?) ");

const outlook::Folder& Require(const outlook::Folder* folder)
{
    if (!folder)
        throw ado::AdoError(91, OutAddIn::AppTitle(), QStringLiteral("Object variable or With block variable not set"));
    return *folder;
}

// VB's Trim: spaces only.
QString TrimSpaces(const QString& s)
{
    qsizetype b = 0, e = s.size();
    while (b < e && s.at(b) == u' ') ++b;
    while (e > b && s.at(e - 1) == u' ') --e;
    return s.mid(b, e - b);
}

}  // namespace

std::int16_t OutAddIn::GetMaxSortID()
{
    std::int16_t result = 0;
    Trap(QStringLiteral("GetMaxSortID of Class Module OutAddIn"), [&] {
        std::unique_ptr<ado::Recordset> rs;
        if (!Db1().CreateRS(rs, QStringLiteral("SELECT MAX(SortID) As MaxID From Rules"))) return;
        if (rs->RecordCount() > 0 && !rs->IsEOF()) {
            const QVariant maxId = rs->Value(QStringLiteral("MaxID"));
            if (maxId.isValid() && !maxId.isNull()) result = store::CInt(maxId);
        }
        rs->Close();
    });
    return result;
}

bool OutAddIn::CreateDefaultRule(const QString& ruleName, const outlook::Folder* source,
                                 const outlook::Folder* destination, const QVariant& msgAgeCode,
                                 const QVariant& flagCode)
{
    bool created = false;
    Trap(QStringLiteral("CreateDefaultRule of Class Module OutAddIn"), [&] {
        // 16-bit arithmetic: a rule at 32767 leaves no place after it.
        const std::int16_t sortPosition = store::AddInt(GetMaxSortID(), 1);
        const outlook::Folder& src = Require(source);
        const outlook::Folder& dst = Require(destination);

        ado::Command cmd;
        cmd.SetCommandType(ado::adCmdText);
        cmd.SetCommandText(kDefaultRuleInsert);
        auto add = [&cmd](const char* name, int type, long size, const QVariant& value) {
            cmd.AppendParameter(cmd.CreateParameter(QString::fromLatin1(name), type, ado::adParamInput, size, value));
        };
        auto id = [&add](const char* name, const QString& value) {
            add(name, ado::adLongVarChar, static_cast<long>(value.size()) + 1, value);
        };
        const QString empty;
        add("RuleName", ado::adVarWChar, 150, ruleName);
        add("FromAddress", ado::adVarWChar, 150, empty);
        add("ToAddress", ado::adVarWChar, 150, empty);
        add("CcAddress", ado::adVarWChar, 150, empty);
        add("Subject", ado::adVarWChar, 255, empty);
        add("Importance", ado::adInteger, 10, 3);
        add("Status", ado::adInteger, 10, 1);
        add("FlagStatus", ado::adInteger, 10, flagCode);
        add("MsgAgeID", ado::adInteger, 10, msgAgeCode);
        id("SrcEntryID", src.EntryID());
        id("SrcStoreID", src.StoreID());
        id("DstEntryID", dst.EntryID());
        id("DstStoreID", dst.StoreID());
        add("SortID", ado::adInteger, 10, int(sortPosition));
        add("LastVerb", ado::adInteger, 10, 0);
        add("Message", ado::adVarWChar, 150, empty);
        created = Db1().ExecuteSQL(QString(), &cmd);
    });
    return created;
}

bool OutAddIn::ExportRulesTo(const QString& path)
{
    bool exported = false;
    Trap(QStringLiteral("ExportRules of Class Module OutAddIn"), [&] {
        exported = Db1().Export(QStringLiteral("Select * from Rules"), TrimSpaces(path));
        // Export has reported its own failure; claiming success after it
        // would contradict that box.
        if (exported)
            m_report.answerer().Show(QStringLiteral("Rules Exported Successfully"), os::vbInformation, AppTitle());
    });
    return exported;
}

bool OutAddIn::ImportRulesFrom(const QString& path)
{
    bool imported = false;
    Trap(QStringLiteral("ImportRules of Class Module OutAddIn"), [&] {
        imported = Db1().Import(TrimSpaces(path));
        if (imported)
            m_report.answerer().Show(QStringLiteral("Rules Imported Successfully"), os::vbInformation, AppTitle());
    });
    return imported;
}

}  // namespace mv::addin
