#include "OutAddIn.h"

#include "store/VbConvert.h"

#include "platform/ado/AdoConstants.h"
#include "platform/ado/AdoError.h"

#include <QHash>

namespace mv::addin {

void OutAddIn::UpgradeDB()
{
    Trap(QStringLiteral("UpgradeDB"), [&] {
        std::unique_ptr<ado::Recordset> rs;
        if (!Db1().CreateRS(rs, QStringLiteral("SELECT version From Settings"))) return;
        const QString version = store::CStr(rs->Value(QStringLiteral("Version")));
        rs->Close();

        // The three oldest versions stop at 1.4.0, and 1.4.0 and 1.5.0 move
        // one step per start-up: a 1.0.0 file needs three starts to reach
        // 1.8.0. That is how the add-in has always behaved; keep it.
        using Step = void (OutAddIn::*)();
        static const QHash<QString, std::vector<Step>> chain = {
            {QStringLiteral("1.0.0"),
             {&OutAddIn::UpgradeTo110, &OutAddIn::UpgradeTo120, &OutAddIn::UpgradeTo130, &OutAddIn::UpgradeTo140}},
            {QStringLiteral("1.1.0"), {&OutAddIn::UpgradeTo120, &OutAddIn::UpgradeTo130, &OutAddIn::UpgradeTo140}},
            {QStringLiteral("1.2.0"), {&OutAddIn::UpgradeTo130, &OutAddIn::UpgradeTo140}},
            {QStringLiteral("1.3.0"), {&OutAddIn::UpgradeTo140}},
            {QStringLiteral("1.4.0"), {&OutAddIn::UpgradeTo150}},
            {QStringLiteral("1.5.0"), {&OutAddIn::UpgradeTo180}},
        };
        const auto it = chain.constFind(version);
        if (it == chain.constEnd()) return;
        for (Step step : *it) (this->*step)();
    });
}

std::function<bool()> OutAddIn::Sql(const char* statement)
{
    return [this, statement] { return Db1().ExecuteSQL(QString::fromLatin1(statement)); };
}

void OutAddIn::RunUpgradeStep(const char* procedure, const std::vector<std::function<bool()>>& statements)
{
    Trap(QString::fromLatin1(procedure), [&] {
        for (const auto& statement : statements) {
            if (!statement()) {
                const store::cDB& db = Db1();
                throw ado::AdoError(db.LastErrorNumber(), QString::fromLatin1(procedure), db.LastErrorDescription());
            }
        }
    });
}

void OutAddIn::UpgradeTo110()
{
    // Named for 1.1.0 but writes 1.2.0 with the first Smart Add defaults,
    // which makes UpgradeTo120 a no-op after it.
    RunUpgradeStep("UpgradeTo110", {
        Sql("ALTER TABLE [settings] ADD raRuleName integer"),
        Sql("ALTER TABLE [settings] ADD raFrom integer"),
        Sql("ALTER TABLE [settings] ADD raTo integer"),
        Sql("ALTER TABLE [settings] ADD raCc integer"),
        Sql("ALTER TABLE [settings] ADD raSubject integer"),
        Sql("ALTER TABLE [settings] ADD raImportance integer"),
        Sql("ALTER TABLE [settings] ADD raStatus integer"),
        Sql("ALTER TABLE [settings] ADD raMsgAge integer"),
        Sql("ALTER TABLE [settings] ADD statusPopups integer"),
        Sql("INSERT INTO [MsgAge] VALUES(13, 'x', 0)"),
        Sql("INSERT INTO [MsgAge] VALUES(14, 'n', -15)"),
        Sql("INSERT INTO [MsgAge] VALUES(15, 'd', -3)"),
        Sql("INSERT INTO [MsgAge] VALUES(16, 'd', -4)"),
        Sql("INSERT INTO [MsgAge] VALUES(17, 'd', -5)"),
        Sql("UPDATE [settings] SET version='1.2.0', raRuleName=0, raFrom=1, raTo=1, raCC=0, raSubject=1, "
            "raImportance=1, raStatus=1, raMsgAge=1, statusPopups=1"),
    });
}

void OutAddIn::UpgradeTo120()
{
    RunUpgradeStep("UpgradeTo120", {Sql("UPDATE [settings] SET version='1.2.0'")});
}

void OutAddIn::UpgradeTo130()
{
    RunUpgradeStep("UpgradeTo130", {
        Sql("ALTER TABLE [Rules] ALTER COLUMN FromAddress Memo"),
        Sql("ALTER TABLE [Rules] ALTER COLUMN ToAddress Memo"),
        Sql("ALTER TABLE [Rules] ALTER COLUMN CcAddress Memo"),
        Sql("UPDATE [settings] SET version='1.3.0'"),
    });
}

void OutAddIn::UpgradeTo140()
{
    RunUpgradeStep("UpgradeTo140", {
        Sql("ALTER TABLE [Rules] ALTER COLUMN Subject Memo"),
        Sql("ALTER TABLE [Rules] ADD LastVerb Integer"),
        [this] { return Db1().AppendField(QStringLiteral("Rules"), QStringLiteral("Message"), ado::adLongVarWChar, true); },
        Sql("UPDATE [Rules] SET LastVerb=0, Message=''"),
        Sql("UPDATE [settings] SET version='1.4.0'"),
    });
}

void OutAddIn::UpgradeTo150()
{
    RunUpgradeStep("UpgradeTo150", {
        Sql("ALTER TABLE [settings] ADD alignTime integer"),
        Sql("INSERT INTO [MsgAge] VALUES(18, 'm', -6)"),
        Sql("INSERT INTO [MsgAge] VALUES(19, 'yyyy', -1)"),
        Sql("INSERT INTO [MsgAge] VALUES(20, 'yyyy', -2)"),
        Sql("UPDATE [settings] SET version='1.5.0', alignTime=1"),
    });
}

void OutAddIn::UpgradeTo180()
{
    RunUpgradeStep("UpgradeTo180", {Sql("UPDATE [settings] SET version='1.8.0'")});
}

}  // namespace mv::addin
