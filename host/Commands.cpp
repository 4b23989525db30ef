#include "Commands.h"

#include "ExitCodes.h"
#include "Runtime.h"
#include "core/StoreSet.h"
#include "addin/OutAddIn.h"
#include "engine/RuleRunner.h"
#include "platform/ado/Recordset.h"
#include "platform/mapi/MapiUtils.h"
#include "platform/os/KnownFolders.h"

#include <QFileInfo>

namespace mv::host {

namespace {

QString Text(const QVariant& v)
{
    return v.isNull() ? QStringLiteral("(null)") : v.toString();
}

void Err(const QString& text)
{
    std::fprintf(stderr, "mailvane: %s\n", text.toLocal8Bit().constData());
}

int PrintRules(CommandContext& ctx)
{
    store::cDB* db = ctx.runtime.AddIn().DB1();
    std::unique_ptr<ado::Recordset> rs;
    if (!db || !db->CreateRS(rs, QStringLiteral(
                   "SELECT Rules.RuleID, Rules.SortID, Rules.Active, Rules.RuleName, Rules.MsgAgeID, "
                   "MsgAge.timeField, MsgAge.timeDiff FROM Rules LEFT JOIN MsgAge ON Rules.MsgAgeID = "
                   "MsgAge.MsgAgeID ORDER BY Rules.SortID"))) {
        Err(QStringLiteral("cannot read the rules"));
        return kExitDatabase;
    }
    PrintLine(ctx.out, QStringLiteral("Rules (%1):").arg(rs->RecordCount()));
    PrintLine(ctx.out, QStringLiteral("  %1 %2  %3  %4").arg(QStringLiteral("id"), 4).arg(QStringLiteral("order"), 5)
                           .arg(QStringLiteral("on "), QStringLiteral("name (age window)")));
    for (; !rs->IsEOF(); rs->MoveNext()) {
        const bool active = rs->Value(QStringLiteral("Active")).toInt() == -1;
        PrintLine(ctx.out, QStringLiteral("  %1 %2  %3  %4  (age %5: %6 %7)")
                               .arg(Text(rs->Value(QStringLiteral("RuleID"))), 4)
                               .arg(Text(rs->Value(QStringLiteral("SortID"))), 5)
                               .arg(active ? QStringLiteral("on ") : QStringLiteral("off"))
                               .arg(Text(rs->Value(QStringLiteral("RuleName"))))
                               .arg(Text(rs->Value(QStringLiteral("MsgAgeID"))))
                               .arg(Text(rs->Value(QStringLiteral("timeField"))))
                               .arg(Text(rs->Value(QStringLiteral("timeDiff")))));
    }
    return kExitOk;
}

int RunRules(CommandContext& ctx)
{
    // The drivers by option; --all is the default, as the toolbar's Run.
    struct Driver {
        const char* option;
        engine::RunReport (engine::RuleRunner::*run)();
    };
    static const Driver kDrivers[] = {
        {"--all", &engine::RuleRunner::RunAllRules},
        {"--immediate", &engine::RuleRunner::RunImmediateRules},
        {"--quarter", &engine::RuleRunner::Run15MinuteRules},
    };
    const QString option = ctx.args.value(0, QStringLiteral("--all"));
    for (const Driver& d : kDrivers) {
        if (option != QLatin1String(d.option)) continue;
        const engine::RunReport report = (ctx.runtime.Runner().*d.run)();
        return PrintRunReport(ctx.out, report);
    }
    Err(QStringLiteral("run: unknown option %1 (use --all, --immediate or --quarter)").arg(option));
    return kExitUsage;
}

// The console's preview window: the caption and the lines on stdout.
class ConsolePreview : public engine::PreviewForm {
public:
    explicit ConsolePreview(std::FILE* out) : m_out(out) {}
    void SetCaption(const QString& caption) override { m_caption = caption; }
    void SetLines(const QStringList& lines) override { m_lines = lines; }
    void ShowModal() override
    {
        PrintLine(m_out, m_caption);
        for (const QString& l : m_lines) PrintLine(m_out, QStringLiteral("  ") + l);
        PrintLine(m_out, QStringLiteral("%1 message(s) would move").arg(m_lines.size()));
    }

private:
    std::FILE* m_out;
    QString m_caption;
    QStringList m_lines;
};

// A rule's id from its id or its exact name; nullopt with a message when
// none or more than one rule has that name.
std::optional<int> FindRule(CommandContext& ctx, const QString& key)
{
    store::cDB* db = ctx.runtime.AddIn().DB1();
    std::unique_ptr<ado::Recordset> rs;
    if (!db || !db->CreateRS(rs, QStringLiteral("SELECT RuleID, RuleName FROM Rules ORDER BY SortID"))) {
        Err(QStringLiteral("cannot read the rules"));
        return std::nullopt;
    }
    bool isNumber = false;
    const int wanted = key.toInt(&isNumber);
    std::vector<int> byName;
    for (; !rs->IsEOF(); rs->MoveNext()) {
        const int id = rs->Value(QStringLiteral("RuleID")).toInt();
        if (isNumber && id == wanted) return id;
        if (rs->Value(QStringLiteral("RuleName")).toString() == key) byName.push_back(id);
    }
    if (byName.size() == 1) return byName.front();
    Err(byName.empty() ? QStringLiteral("no rule named or numbered \"%1\" (see mailvane rules)").arg(key)
                       : QStringLiteral("%1 rules are named \"%2\": give the id (see mailvane rules)")
                             .arg(byName.size()).arg(key));
    return std::nullopt;
}

int RunPreview(CommandContext& ctx)
{
    const QString key = ctx.args.at(0);
    if (key != QLatin1String("--all")) {
        const auto id = FindRule(ctx, key);
        if (!id) return kExitUsage;
        ConsolePreview form(ctx.out);
        ctx.runtime.Runner().PreviewRule(*id, form);
        return kExitOk;
    }
    const std::vector<engine::RulePreview> previews = ctx.runtime.Runner().PreviewAllRules();
    int total = 0;
    bool problems = false;
    for (const engine::RulePreview& p : previews) {
        PrintLine(ctx.out, QStringLiteral("%1: %2 would move%3")
                               .arg(p.ruleName).arg(p.Count())
                               .arg(p.problem.isEmpty() ? QString() : QStringLiteral(" (") + p.problem + QLatin1Char(')')));
        for (const QString& s : p.subjects) PrintLine(ctx.out, QStringLiteral("    ") + s);
        total += p.Count();
        problems = problems || !p.problem.isEmpty();
    }
    PrintLine(ctx.out, QStringLiteral("Preview: %1 message(s) would move by %2 rule(s)").arg(total).arg(previews.size()));
    return problems ? kExitRunFailed : kExitOk;
}

int RunExport(CommandContext& ctx)
{
    return ctx.runtime.AddIn().ExportRulesTo(ctx.args.at(0)) ? kExitOk : kExitRunFailed;
}

int RunImport(CommandContext& ctx)
{
    return ctx.runtime.AddIn().ImportRulesFrom(ctx.args.at(0)) ? kExitOk : kExitRunFailed;
}

int RunFolders(CommandContext& ctx)
{
    int code = kExitOk;
    for (mapi::MessageStore* store : ctx.runtime.Stores().Stores()) {
        PrintLine(ctx.out, QStringLiteral("%1  store %2").arg(store->DisplayName(),
                                                              mapi::MapiUtils::HrGetHexFromBinary(store->StoreId())));
        auto folders = store->Folders();
        if (!folders) {
            Err(QStringLiteral("%1: %2").arg(store->DisplayName(), folders.error().message));
            code = kExitStore;
            continue;
        }
        for (const mapi::FolderInfo& f : *folders) {
            const QString counts = f.total < 0 ? QString() : QStringLiteral("  (%1, %2 unread)").arg(f.total).arg(f.unread);
            PrintLine(ctx.out, QStringLiteral("  %1  %2%3").arg(mapi::MapiUtils::HrGetHexFromBinary(f.entryId), f.path, counts));
        }
    }
    return code;
}

const Command kCommands[] = {
    {"run", "run [--all|--immediate|--quarter]", "run the active rules (default --all) and print what moved", 0, 1,
     RunRules},
    {"preview", "preview RULE|--all", "list what one rule (id or name), or a whole run, would move; nothing moves",
     1, 1, RunPreview},
    {"rules", "rules", "print the rules in run order", 0, 0, PrintRules},
    {"export", "export FILE", "write every rule to FILE (rowset XML)", 1, 1, RunExport},
    {"import", "import FILE", "append the rules of FILE to the database", 1, 1, RunImport},
    {"folders", "folders", "print every store's folders with the identifiers rules use", 0, 0, RunFolders},
    {"demo", "demo [--reseed]", "seed the default store with sample mail and rules, then run every rule", 0, 1,
     RunDemo, PrepareDemo, true},
    {nullptr, nullptr, nullptr, 0, 0, nullptr},
};

}  // namespace

void PrintLine(std::FILE* out, const QString& line)
{
    std::fputs(line.toUtf8().constData(), out);
    std::fputc('\n', out);
}

int PrintRunReport(std::FILE* out, const engine::RunReport& report)
{
    for (const QString& line : report.Lines(true)) PrintLine(out, line);
    for (const engine::FolderProblem& p : report.missingFolders)
        PrintLine(out, QStringLiteral("%1: %2 folder not found").arg(p.ruleName, p.source ? QStringLiteral("source")
                                                                                            : QStringLiteral("destination")));
    static const char* const kEnds[] = {"completed", "stopped at a missing folder", "a rule failed", "cancelled",
                                        "failed"};
    PrintLine(out, QStringLiteral("%1: %2 message(s) moved by %3 rule(s), %4")
                       .arg(report.driver)
                       .arg(report.TotalMoved())
                       .arg(report.rules.size())
                       .arg(QLatin1String(kEnds[static_cast<int>(report.end)])));
    if (!report.error.isEmpty()) Err(report.error);
    return report.end == engine::RunEnd::Completed ? kExitOk : kExitRunFailed;
}

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
    std::fputs("usage: mailvane [OPTIONS]                 the desktop program (needs a display)\n"
               "       mailvane [OPTIONS] COMMAND [ARGS]\n"
               "       mailvane [OPTIONS] --headless\n\ncommands:\n",
               out);
    for (const Command* c = kCommands; c->name; ++c) std::fprintf(out, "  %-36s %s\n", c->usage, c->summary);
    std::fputs("\noptions:\n"
               "  --profile FILE   the stores to use (default $XDG_CONFIG_HOME/Mailvane/profile.ini,\n"
               "                   else the local Maildir in the data folder)\n"
               "  --yes, --no      the answer to every question (default: the answer that changes\n"
               "                   nothing: No to a Yes/No question, Cancel where offered)\n"
               "  --headless       run as a service: timers and new-mail runs until SIGTERM/SIGINT\n"
               "  --help           this text\n"
               "\nexit codes: 0 ok, 1 a rule or run failed, 2 usage, 3 database, 4 store, 5 profile\n"
               "Messages and questions go to stderr and to mv.log in the data folder.\n",
               out);
    // Where the files are, so a user (and the package test) can see that an
    // installed program found its own data.
    const QString install = os::InstallDir();
    const bool found = QFileInfo::exists(install + u'/' + QLatin1String(os::kTemplateRelPath));
    std::fprintf(out, "\ndata folder:     %s\ninstalled files: %s%s\n", qUtf8Printable(os::DataDir()),
                 qUtf8Printable(install), found ? "" : " (Database/_mvblank.mdb is missing)");
}

}  // namespace mv::host
