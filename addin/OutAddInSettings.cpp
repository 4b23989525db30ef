#include "OutAddIn.h"

#include "store/VbConvert.h"

#include "platform/ado/AdoConstants.h"

namespace mv::addin {

using store::CInt;

void OutAddIn::LoadSettings()
{
    Trap(QStringLiteral("LoadSettings of Class Module OutAddIn"), [&] {
        std::unique_ptr<ado::Recordset> rs;
        if (!Db1().CreateRS(rs, QStringLiteral("SELECT * From Settings"))) return;
        // One field at a time: whatever was read before a bad value stays.
        m_weekStart = CInt(rs->Value(QStringLiteral("WeekStart")));
        m_toolbar = CInt(rs->Value(QStringLiteral("Toolbar")));
        m_menubar = CInt(rs->Value(QStringLiteral("Menubar")));
        m_runOnStart = CInt(rs->Value(QStringLiteral("RunOnStart")));
        tbTop = CInt(rs->Value(QStringLiteral("tbTop")));
        tbLeft = CInt(rs->Value(QStringLiteral("tbLeft")));
        tbRow = CInt(rs->Value(QStringLiteral("tbRow")));
        tbPos = CInt(rs->Value(QStringLiteral("tbPos")));
        init = CInt(rs->Value(QStringLiteral("init")));
        m_statusPops = CInt(rs->Value(QStringLiteral("statusPopups")));
        m_alignTime = CInt(rs->Value(QStringLiteral("AlignTime")));
        rs->Close();
    });
}

bool OutAddIn::SaveSettings()
{
    bool saved = false;
    Trap(QStringLiteral("SaveSettings of Class Module OutAddIn"), [&] {
        init = 1;
        ado::Command cmd;
        cmd.SetCommandType(ado::adCmdText);
        cmd.SetCommandText(QStringLiteral(
            "UPDATE [Settings] SET [WeekStart]=?, [toolbar]=?, [menubar]=?, [runOnStart]=?, [tbTop]=?, "
            "[tbLeft]=?, [tbRow]=?, [tbPos]=?, [init]=?, [statusPopups]=?, [alignTime]=?"));
        // Parameter names never reach the database; "statusPopus" is the
        // name this statement has always used.
        const std::pair<const char*, std::int16_t> values[] = {
            {"weekStart", m_weekStart}, {"toolbar", m_toolbar},   {"menuBar", m_menubar},
            {"runOnStart", m_runOnStart}, {"tbTop", tbTop},       {"tbLeft", tbLeft},
            {"tbRow", tbRow},             {"tbPos", tbPos},       {"init", init},
            {"statusPopus", m_statusPops}, {"alignTime", m_alignTime},
        };
        for (const auto& [name, value] : values)
            cmd.AppendParameter(cmd.CreateParameter(QString::fromLatin1(name), ado::adInteger, ado::adParamInput, 10,
                                                    QVariant(int(value))));
        saved = Db1().ExecuteSQL(QString(), &cmd);
    });
    return saved;
}

}  // namespace mv::addin
