#include "Commands.h"

#include "addin/OutAddIn.h"

#include <QTextStream>

namespace mv::host {

namespace {

QString Text(const QVariant& v)
{
    return v.isNull() ? QStringLiteral("(null)") : v.toString();
}

void Print(std::FILE* out, const QString& line)
{
    std::fputs(line.toUtf8().constData(), out);
    std::fputc('\n', out);
}

int PrintRules(CommandContext& ctx)
{
    store::cDB* db = ctx.addIn.DB1();
    std::unique_ptr<ado::Recordset> rs;
    if (!db || !db->CreateRS(rs, QStringLiteral(
                   "SELECT Rules.SortID, Rules.Active, Rules.RuleName, Rules.MsgAgeID, MsgAge.timeField, "
                   "MsgAge.timeDiff FROM Rules LEFT JOIN MsgAge ON Rules.MsgAgeID = MsgAge.MsgAgeID "
                   "ORDER BY Rules.SortID"))) {
        Print(stderr, QStringLiteral("mailvane: cannot read the rules"));
        return 1;
    }
    Print(ctx.out, QStringLiteral("Rules (%1):").arg(rs->RecordCount()));
    for (; !rs->IsEOF(); rs->MoveNext()) {
        const bool active = rs->Value(QStringLiteral("Active")).toInt() == -1;
        Print(ctx.out, QStringLiteral("  %1  %2  %3  (age %4: %5 %6)")
                           .arg(Text(rs->Value(QStringLiteral("SortID"))), 5)
                           .arg(active ? QStringLiteral("on ") : QStringLiteral("off"))
                           .arg(Text(rs->Value(QStringLiteral("RuleName"))))
                           .arg(Text(rs->Value(QStringLiteral("MsgAgeID"))))
                           .arg(Text(rs->Value(QStringLiteral("timeField"))))
                           .arg(Text(rs->Value(QStringLiteral("timeDiff")))));
    }
    return 0;
}

int RunDemo(CommandContext& ctx)
{
    const auto& a = ctx.addIn;
    Print(ctx.out, QStringLiteral("Database: %1").arg(a.DB1() ? a.DB1()->ConnectionString() : QString()));
    Print(ctx.out, QStringLiteral("Settings: WeekStart=%1 Toolbar=%2 Menubar=%3 RunOnStart=%4 StatusPops=%5 "
                                  "AlignTime=%6 tbTop=%7 tbLeft=%8 tbRow=%9 tbPos=%10 init=%11")
                       .arg(a.WeekStart()).arg(a.Toolbar()).arg(a.Menubar()).arg(a.RunOnStart())
                       .arg(a.StatusPops()).arg(a.AlignTime()).arg(a.tbTop).arg(a.tbLeft).arg(a.tbRow)
                       .arg(a.tbPos).arg(a.init));
    return PrintRules(ctx);
}

int RunExport(CommandContext& ctx)
{
    return ctx.addIn.ExportRulesTo(ctx.args.at(0)) ? 0 : 1;
}

int RunImport(CommandContext& ctx)
{
    return ctx.addIn.ImportRulesFrom(ctx.args.at(0)) ? 0 : 1;
}

const Command kCommands[] = {
    {"demo", "demo", "open the rule database, print the settings and the rules", 0, 0, RunDemo},
    {"rules", "rules", "print the rules in run order", 0, 0, PrintRules},
    {"export", "export FILE", "write every rule to FILE (rowset XML)", 1, 1, RunExport},
    {"import", "import FILE", "append the rules of FILE to the database", 1, 1, RunImport},
    {nullptr, nullptr, nullptr, 0, 0, nullptr},
};

}  // namespace

const Command* Commands()
{
    return kCommands;
}

const Command* FindCommand(const QString& name)
{
    for (const Command* c = kCommands; c->name; ++c)
        if (name == QLatin1String(c->name)) return c;
    return nullptr;
}

void PrintUsage(std::FILE* out)
{
    std::fputs("usage: mailvane COMMAND [ARGS]\n\ncommands:\n", out);
    for (const Command* c = kCommands; c->name; ++c)
        std::fprintf(out, "  %-14s %s\n", c->usage, c->summary);
    std::fputs("\nThe rule database is mv.mdb in the data folder; it is made from the blank\n"
               "template on first use. Messages go to stderr.\n",
               out);
}

}  // namespace mv::host
