#include "Commands.h"

#include "ExitCodes.h"
#include "Runtime.h"
#include "core/StoreSet.h"
#include "addin/OutAddIn.h"
#include "engine/RuleRunner.h"
#include "platform/ado/AdoError.h"
#include "platform/ado/Recordset.h"
#include "platform/mapi/MapiUtils.h"
#include "forms/RuleChoices.h"
#include "forms/RuleList.h"
#include "platform/os/KnownFolders.h"
#include "platform/os/MessageBox.h"
#include "store/VbConvert.h"
#include "store/cDB.h"

#include <QFileInfo>
#include <QHash>

#include <algorithm>
#include <cstring>
#include <optional>

#include <unistd.h>

namespace mv::host {

void Err(const QString& text)
{
    std::fprintf(stderr, "mailvane: %s\n", text.toLocal8Bit().constData());
}

namespace {

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

// ---- rules: the list and the Rules Manager's actions ----------------------

// Labels by code; the age labels are the editor's own.
struct Words {
    int code;
    const char* words;
};

constexpr Words kImportanceWords[] = {{0, "Low importance"}, {1, "Normal importance"}, {2, "High importance"}};
constexpr Words kStatusWords[] = {{0, "Unread"}, {1, "Read"}};
constexpr Words kFlagWords[] = {{1, "Follow-up complete"}, {2, "Flagged"},      {9, "No flag"},
                                {11, "Purple flag"},       {12, "Orange flag"}, {13, "Green flag"},
                                {14, "Yellow flag"},       {15, "Blue flag"},   {16, "Red flag"}};
constexpr Words kLastVerbWords[] = {{102, "Replied to"}, {104, "Forwarded"}};
constexpr Words kIntervalWords[] = {{'n', "minute(s)"}, {'h', "hour(s)"}, {'d', "day(s)"},
                                    {'w', "week(s)"},   {'m', "month(s)"}, {'y', "year(s)"}};

template <std::size_t N>
const char* WordsFor(const Words (&table)[N], int code)
{
    for (const Words& w : table)
        if (w.code == code) return w.words;
    return nullptr;
}

// A code the tables do not name is shown as the code, so nothing is hidden.
template <std::size_t N>
QString CodeWords(const Words (&table)[N], int code, const char* what)
{
    const char* words = WordsFor(table, code);
    return words ? QLatin1String(words) : QStringLiteral("%1 %2").arg(QLatin1String(what)).arg(code);
}

// The age window: the editor's label for the rule's MsgAgeID, else what its
// MsgAge row holds.
QString AgeWords(const QVariant& msgAgeId, const QVariant& timeField, const QVariant& timeDiff)
{
    if (msgAgeId.isNull() || msgAgeId.toInt() == forms::kAnyMsgAge) return QStringLiteral("Any Time");
    for (const forms::Choice& c : forms::MsgAgeChoices())
        if (c.code == msgAgeId.toInt()) return QStringLiteral("Older than ") + QLatin1String(c.label);
    const QString field = timeField.toString();
    if (timeField.isNull() || field.isEmpty())
        return QStringLiteral("Age window %1 (not in the MsgAge table)").arg(msgAgeId.toInt());
    const char* unit = WordsFor(kIntervalWords, field.at(0).toLatin1());
    return QStringLiteral("Older than %1 %2").arg(-timeDiff.toInt()).arg(unit ? QLatin1String(unit) : field);
}

// Each state criterion in words; empty when unset, at the bounds the engine
// uses.
QString ImportanceWords(const QVariant& v)
{
    if (v.isNull() || v.toInt() >= forms::kAnyImportance) return {};
    return CodeWords(kImportanceWords, v.toInt(), "Importance");
}
QString StatusWords(const QVariant& v)
{
    if (v.isNull() || v.toInt() >= forms::kAnyStatus) return {};
    return CodeWords(kStatusWords, v.toInt(), "Read state");
}
QString FlagWords(const QVariant& v)
{
    if (v.isNull() || v.toInt() <= forms::kAnyFlag) return {};
    return CodeWords(kFlagWords, v.toInt(), "Flag status");
}
QString LastVerbWords(const QVariant& v)
{
    if (v.isNull() || v.toInt() == forms::kAnyLastVerb) return {};
    return CodeWords(kLastVerbWords, v.toInt(), "Last verb");
}

struct StateCriterion {
    const char* label;
    const char* column;
    QString (*words)(const QVariant&);
};
constexpr StateCriterion kStateCriteria[] = {{"Importance", "Importance", ImportanceWords},
                                             {"Read state", "Status", StatusWords},
                                             {"Flag", "FlagStatus", FlagWords},
                                             {"Last action", "LastVerb", LastVerbWords}};

// The set state criteria of the current row, in words.
QStringList StateWords(const ado::Recordset& rs)
{
    QStringList words;
    for (const StateCriterion& c : kStateCriteria)
        if (QString w = c.words(rs.Value(QLatin1String(c.column))); !w.isEmpty()) words << w;
    return words;
}

const QString kRuleWithAge = QStringLiteral(
    "SELECT Rules.*, MsgAge.timeField, MsgAge.timeDiff FROM Rules LEFT JOIN MsgAge ON Rules.MsgAgeID = "
    "MsgAge.MsgAgeID");

// The Rules Manager's list (run order, Active) from its own load.
std::optional<forms::RuleList> LoadList(CommandContext& ctx)
{
    forms::RuleList list;
    store::cDB* db = ctx.runtime.AddIn().DB1();
    if (!db || !list.Load(*db)) {
        Err(QStringLiteral("cannot read the rules"));
        return std::nullopt;
    }
    return list;
}

int ListRules(CommandContext& ctx)
{
    const auto list = LoadList(ctx);
    std::unique_ptr<ado::Recordset> rs;
    if (!list || !ctx.runtime.AddIn().DB1()->CreateRS(rs, kRuleWithAge)) {
        if (list) Err(QStringLiteral("cannot read the rules"));
        return kExitDatabase;
    }
    QHash<int, std::pair<QString, QStringList>> details;  // RuleID -> age window, states
    for (; !rs->IsEOF(); rs->MoveNext())
        details.insert(rs->Value(QStringLiteral("RuleID")).toInt(),
                       {AgeWords(rs->Value(QStringLiteral("MsgAgeID")), rs->Value(QStringLiteral("timeField")),
                                 rs->Value(QStringLiteral("timeDiff"))),
                        StateWords(*rs)});
    const auto active = std::count_if(list->Rows().begin(), list->Rows().end(), [](const auto& r) { return r.active; });
    PrintLine(ctx.out, QStringLiteral("Rules (%1, %2 active), in run order:").arg(list->Rows().size()).arg(active));
    const QString format = QStringLiteral("  %1 %2  %3 %4  %5%6");
    PrintLine(ctx.out, format.arg(QStringLiteral("pos")).arg(QStringLiteral("id"), 5).arg(QStringLiteral("state"), -8)
                           .arg(QStringLiteral("age window"), -20).arg(QStringLiteral("name"))
                           .arg(QStringLiteral(" [other criteria]")));
    // Each rule's recent record under its line; without a journal, nothing.
    QHash<int, journal::RuleHealth> health;
    if (auto h = ctx.runtime.Runner().Health())
        for (const journal::RuleHealth& r : *h) health.insert(r.ruleId, r);
    int position = 0;
    for (const forms::RuleListRow& row : list->Rows()) {
        const auto d = details.value(row.ruleId);
        PrintLine(ctx.out, format.arg(++position, 3)
                               .arg(row.ruleId, 5)
                               .arg(row.active ? QStringLiteral("active") : QStringLiteral("off"), -8)
                               .arg(d.first, -20)
                               .arg(row.name)
                               .arg(d.second.isEmpty() ? QString()
                                                       : QStringLiteral(" [") + d.second.join(QStringLiteral(", ")) +
                                                             QLatin1Char(']')));
        const auto h = health.find(row.ruleId);
        PrintLine(ctx.out, QStringLiteral("        health: ") +
                               engine::HealthWords(h == health.end() ? std::nullopt : std::optional(*h)));
    }
    return kExitOk;
}

// "Store name: Folder/Path" for a folder's binary identity.
QString FolderWords(CommandContext& ctx, const QByteArray& store, const QByteArray& folderId)
{
    mapi::MessageStore* s = mapi::FindStore(ctx.runtime.Stores().Stores(), store);
    if (!s) return QStringLiteral("(a store that is not in this profile)");
    const auto folder = s->Folder(folderId);
    if (!folder) return s->DisplayName() + QStringLiteral(": (folder not found: ") + folder.error().message + u')';
    return s->DisplayName() + QStringLiteral(": ") + folder->path;
}

// The same for a rule's stored (hexadecimal) folder identity.
QString FolderWords(CommandContext& ctx, const QVariant& entry, const QVariant& store)
{
    const QString entryHex = entry.toString(), storeHex = store.toString();
    if (entryHex.isEmpty() || storeHex.isEmpty()) return QStringLiteral("(not set)");
    const auto storeId = mapi::MapiUtils::HexToBinary(storeHex);
    const auto id = mapi::MapiUtils::HexToBinary(entryHex);
    if (storeId && id) return FolderWords(ctx, *storeId, *id);
    mapi::MessageStore* s = storeId ? mapi::FindStore(ctx.runtime.Stores().Stores(), *storeId) : nullptr;
    if (!s) return QStringLiteral("(a store that is not in this profile)");
    return s->DisplayName() + QStringLiteral(": (the folder identifier is not hexadecimal)");
}

int ShowRule(CommandContext& ctx, int ruleId)
{
    const auto list = LoadList(ctx);
    std::unique_ptr<ado::Recordset> rs;
    if (!list || !ctx.runtime.AddIn().DB1()->CreateRS(
                     rs, kRuleWithAge + QStringLiteral(" WHERE Rules.RuleID = ") + QString::number(ruleId)) ||
        rs->IsEOF()) {
        if (list) Err(QStringLiteral("cannot read the rule"));
        return kExitDatabase;
    }
    const auto text = [&](const char* column) {
        const QString v = rs->Value(QLatin1String(column)).toString();
        return v.isEmpty() ? QStringLiteral("Don't Care") : v;
    };
    const struct {
        const char* label;
        QString value;
    } lines[] = {
        {"Rule", QStringLiteral("%1 (id %2)").arg(rs->Value(QStringLiteral("RuleName")).toString()).arg(ruleId)},
        {"Active", list->Rows().at(list->PositionOf(ruleId) - 1).active ? QStringLiteral("yes, takes part in runs")
                                                                         : QStringLiteral("no, switched off")},
        {"Position", QStringLiteral("%1 of %2 in run order").arg(list->PositionOf(ruleId)).arg(list->Rows().size())},
        {"Source", FolderWords(ctx, rs->Value(QStringLiteral("SrcEntryID")), rs->Value(QStringLiteral("SrcStoreID")))},
        {"Destination",
         FolderWords(ctx, rs->Value(QStringLiteral("DstEntryID")), rs->Value(QStringLiteral("DstStoreID")))},
        {"From", text("FromAddress")},
        {"To", text("ToAddress")},
        {"Cc", text("CcAddress")},
        {"Subject", text("Subject")},
        {"Body", text("Message")},
        {"Age", AgeWords(rs->Value(QStringLiteral("MsgAgeID")), rs->Value(QStringLiteral("timeField")),
                         rs->Value(QStringLiteral("timeDiff")))},
    };
    const auto print = [&](const QString& label, const QString& value) {
        PrintLine(ctx.out, QStringLiteral("%1 %2").arg(label + u':', -13).arg(value));
    };
    for (const auto& l : lines) print(QLatin1String(l.label), l.value);
    for (const StateCriterion& c : kStateCriteria) {
        const QString w = c.words(rs->Value(QLatin1String(c.column)));
        print(QLatin1String(c.label), w.isEmpty() ? QStringLiteral("Don't Care") : w);
    }
    std::optional<journal::RuleHealth> health;
    if (auto h = ctx.runtime.Runner().Health())
        for (const journal::RuleHealth& r : *h)
            if (r.ruleId == ruleId) health = r;
    print(QStringLiteral("Health"), engine::HealthWords(health));
    return kExitOk;
}

// Check box and Apply in the manager: the list as loaded, this rule's flag
// changed, every row saved.
int SetActive(CommandContext& ctx, int ruleId, bool active)
{
    auto list = LoadList(ctx);
    if (!list) return kExitDatabase;
    forms::RuleListRow& row = list->Rows().at(list->PositionOf(ruleId) - 1);
    if (row.active == active) {
        PrintLine(ctx.out, QStringLiteral("%1 is already %2").arg(row.name, active ? QStringLiteral("active")
                                                                                  : QStringLiteral("off")));
        return kExitOk;
    }
    row.active = active;
    if (!list->Save(*ctx.runtime.AddIn().DB1())) return kExitDatabase;
    PrintLine(ctx.out, QStringLiteral("%1 is now %2").arg(row.name, active ? QStringLiteral("active")
                                                                          : QStringLiteral("off")));
    return kExitOk;
}

int EnableRule(CommandContext& ctx, int ruleId, const QStringList&)
{
    return SetActive(ctx, ruleId, true);
}

int DisableRule(CommandContext& ctx, int ruleId, const QStringList&)
{
    return SetActive(ctx, ruleId, false);
}

// --yes or --no (here or before the command), else the console's answer;
// nullopt (with the reason) when nobody can be asked.
std::optional<bool> Confirm(CommandContext& ctx, const QStringList& options, const QString& question)
{
    int answer = ctx.answer;
    for (const QString& o : options) {
        if (o == QLatin1String("--yes")) answer = os::vbYes;
        else if (o == QLatin1String("--no")) answer = os::vbNo;
        else {
            Err(QStringLiteral("rules: unknown option %1 (use --yes or --no)").arg(o));
            return std::nullopt;
        }
    }
    if (answer != 0) return answer == os::vbYes;
    if (!isatty(fileno(stdin))) {
        Err(QStringLiteral("%1 There is no terminal to ask on: give --yes to go ahead or --no to leave it.")
                .arg(question));
        return std::nullopt;
    }
    std::fprintf(stderr, "%s [y/N] ", qUtf8Printable(question));
    std::fflush(stderr);
    char line[64] = {};
    if (!std::fgets(line, sizeof line, stdin)) return false;
    return line[0] == 'y' || line[0] == 'Y';
}

int DeleteRule(CommandContext& ctx, int ruleId, const QStringList& options)
{
    auto list = LoadList(ctx);
    if (!list) return kExitDatabase;
    const QString name = list->Rows().at(list->PositionOf(ruleId) - 1).name;
    const auto yes = Confirm(ctx, options, QStringLiteral("Delete the rule \"%1\" (id %2)?").arg(name).arg(ruleId));
    if (!yes) return kExitUsage;
    if (!*yes) {
        PrintLine(ctx.out, QStringLiteral("%1 kept").arg(name));
        return kExitOk;
    }
    if (!forms::RuleList::Delete(*ctx.runtime.AddIn().DB1(), store::CInt(ruleId))) return kExitDatabase;
    PrintLine(ctx.out, QStringLiteral("%1 deleted").arg(name));
    return kExitOk;
}

// Move up/down and Apply in the manager: the row moved in the list, every
// row saved, so positions are 1..n afterwards.
int MoveRule(CommandContext& ctx, int ruleId, const QStringList& options)
{
    auto list = LoadList(ctx);
    if (!list) return kExitDatabase;
    const int count = static_cast<int>(list->Rows().size());
    bool isNumber = false;
    const int to = options.size() == 2 && options.at(0) == QLatin1String("--to") ? options.at(1).toInt(&isNumber) : 0;
    if (!isNumber || to < 1 || to > count) {
        Err(QStringLiteral("rules move: give --to N with N from 1 to %1 (the position in run order)").arg(count));
        return kExitUsage;
    }
    const int from = list->PositionOf(ruleId);
    const QString name = list->Rows().at(from - 1).name;
    if (list->Move(from, to) && !list->Save(*ctx.runtime.AddIn().DB1())) return kExitDatabase;
    PrintLine(ctx.out, QStringLiteral("%1 is at position %2 of %3").arg(name).arg(to).arg(count));
    return kExitOk;
}

int ShowRuleAction(CommandContext& ctx, int ruleId, const QStringList& options)
{
    if (!options.isEmpty()) {
        Err(QStringLiteral("rules show: unexpected %1").arg(options.first()));
        return kExitUsage;
    }
    return ShowRule(ctx, ruleId);
}

struct RulesAction {
    const char* name;
    const char* usage;
    const char* summary;
    int (*run)(CommandContext& ctx, int ruleId, const QStringList& options);
};

const RulesAction kRulesActions[] = {
    {"show", "rules show RULE", "one rule (id or name): every criterion in words, folders by path", ShowRuleAction},
    {"enable", "rules enable RULE", "switch a rule on: it takes part in runs", EnableRule},
    {"disable", "rules disable RULE", "switch a rule off", DisableRule},
    {"delete", "rules delete RULE [--yes|--no]", "delete a rule; asks first (no terminal: needs --yes or --no)",
     DeleteRule},
    {"move", "rules move RULE --to N", "put a rule at position N of the run order (1 runs first)", MoveRule},
};

int RunRulesCommand(CommandContext& ctx)
{
    if (ctx.args.isEmpty()) return ListRules(ctx);
    const QString name = ctx.args.at(0);
    for (const RulesAction& a : kRulesActions) {
        if (name != QLatin1String(a.name)) continue;
        if (ctx.args.size() < 2) {
            Err(QStringLiteral("usage: mailvane %1").arg(QLatin1String(a.usage)));
            return kExitUsage;
        }
        const auto id = FindRule(ctx, ctx.args.at(1));
        if (!id) return kExitUsage;
        try {
            return a.run(ctx, *id, ctx.args.mid(2));
        } catch (const ado::AdoError& e) {  // a RuleID beyond 16 bits, as the manager's tag
            Err(QStringLiteral("rule %1: %2").arg(*id).arg(e.Description()));
            return kExitDatabase;
        }
    }
    Err(QStringLiteral("rules: unknown action \"%1\" (use show, enable, disable, delete or move)").arg(name));
    return kExitUsage;
}

// ---- undo and history: what runs moved, from the move journal ------------

int RunUndoCommand(CommandContext& ctx)
{
    qint64 run = 0;
    if (!ctx.args.isEmpty()) {
        bool isNumber = false;
        if (ctx.args.size() == 2 && ctx.args.at(0) == QLatin1String("--run")) run = ctx.args.at(1).toLongLong(&isNumber);
        if (!isNumber || run <= 0) {
            Err(QStringLiteral("usage: mailvane undo [--run N] (N from mailvane history)"));
            return kExitUsage;
        }
    }
    const engine::UndoOutcome outcome = ctx.runtime.Runner().UndoRun(run);
    for (const QString& line : outcome.Lines()) PrintLine(ctx.out, line);
    if (!outcome.error.isEmpty()) Err(outcome.error);
    return outcome.error.isEmpty() && outcome.report.run && outcome.report.NotTakenBack() == 0 ? kExitOk
                                                                                              : kExitRunFailed;
}

QString When(const QDateTime& t)
{
    return t.isValid() ? t.toLocalTime().toString(QStringLiteral("yyyy-MM-dd HH:mm:ss")) : QStringLiteral("-");
}

// "Store: Folder/Path" of a journal row's folder, looked up once per folder.
class FolderNames {
public:
    explicit FolderNames(CommandContext& ctx) : m_ctx(ctx) {}
    QString operator()(const QByteArray& store, const QByteArray& folder)
    {
        const QByteArray key = store.toHex() + '/' + folder.toHex();
        if (auto it = m_names.find(key); it != m_names.end()) return *it;
        return *m_names.insert(key, FolderWords(m_ctx, store, folder));
    }

private:
    CommandContext& m_ctx;
    QHash<QByteArray, QString> m_names;
};

int HistoryOfRun(CommandContext& ctx, journal::MoveJournal& moves, qint64 run)
{
    auto row = moves.RunOf(run);
    auto rows = moves.RowsOfRun(run);
    if (!row || !rows) {
        Err(!row ? row.error().message : rows.error().message);
        return kExitRunFailed;
    }
    if (!*row) {
        Err(QStringLiteral("there is no run %1 in the history (see mailvane history)").arg(run));
        return kExitUsage;
    }
    PrintLine(ctx.out, QStringLiteral("Run %1, %2, %3: %4 message(s)")
                           .arg(run).arg(When((*row)->started), engine::TriggerWords(**row)).arg(rows->size()));
    static const char* const kStates[] = {"unfinished", "moved", "rolled back", "gone", "failed"};
    FolderNames folder(ctx);
    for (const journal::MoveRow& r : *rows) {
        const QString state = r.state == journal::MoveState::Moved ? QString()
                                                                    : QStringLiteral(" [%1%2]").arg(
                                                                          QLatin1String(kStates[static_cast<int>(r.state)]),
                                                                          r.note.isEmpty() ? QString() : QStringLiteral(": ") + r.note);
        PrintLine(ctx.out, QStringLiteral("  \"%1\" from %2, rule %3%4%5")
                               .arg(r.subject, r.sender, r.ruleName,
                                    r.kind == journal::MoveKind::Undo ? QStringLiteral(" (taken back)") : QString(), state));
        PrintLine(ctx.out, QStringLiteral("      %1  ->  %2").arg(folder(r.srcStore, r.srcFolder), folder(r.dstStore, r.dstFolder)));
    }
    return kExitOk;
}

int RunHistory(CommandContext& ctx)
{
    auto moves = ctx.runtime.Runner().Journal();
    if (!moves) {
        Err(moves.error().message);
        return kExitRunFailed;
    }
    if (!ctx.args.isEmpty()) {
        bool isNumber = false;
        const qint64 run = ctx.args.at(0).toLongLong(&isNumber);
        if (!isNumber || run <= 0) {
            Err(QStringLiteral("usage: mailvane history [N] (N: a run's number)"));
            return kExitUsage;
        }
        return HistoryOfRun(ctx, **moves, run);
    }
    constexpr int kShown = 30;
    auto runs = (*moves)->Runs(kShown);
    if (!runs) {
        Err(runs.error().message);
        return kExitRunFailed;
    }
    if (runs->empty()) PrintLine(ctx.out, QStringLiteral("No runs yet."));
    for (const journal::RunRow& run : *runs) {
        QString summary;
        if (run.trigger == engine::kUndoTrigger) {
            // An undo run has no rule rows: its moved rows are counted.
            auto rows = (*moves)->RowsOfRun(run.run);
            if (!rows) {
                Err(rows.error().message);
                return kExitRunFailed;
            }
            const auto back = std::count_if(rows->begin(), rows->end(), [](const journal::MoveRow& r) {
                return r.state == journal::MoveState::Moved;
            });
            summary = QStringLiteral("%1 moved back").arg(back);
        } else {
            auto rules = (*moves)->RulesOfRun(run.run);
            if (!rules) {
                Err(rules.error().message);
                return kExitRunFailed;
            }
            int total = 0;
            QStringList parts;
            for (const journal::RuleRunRow& r : *rules) {
                total += r.moved;
                parts << QStringLiteral("%1 %2%3").arg(r.ruleName).arg(r.moved).arg(
                    r.error.isEmpty() ? QString() : QStringLiteral(" (error: ") + r.error + u')');
            }
            summary = QStringLiteral("%1 moved").arg(total) +
                      (parts.isEmpty() ? QString() : QStringLiteral(": ") + parts.join(QStringLiteral(", ")));
        }
        PrintLine(ctx.out, QStringLiteral("%1  %2  %3  %4%5")
                               .arg(run.run, 5)
                               .arg(When(run.started))
                               .arg(engine::TriggerWords(run), -14)
                               .arg(summary)
                               .arg(run.ended.isValid() ? QString() : QStringLiteral(" (did not finish)")));
    }
    return kExitOk;
}

const Command kCommands[] = {
    {"run", "run [--all|--immediate|--quarter]", "run the active rules (default --all) and print what moved", 0, 1,
     RunRules},
    {"preview", "preview RULE|--all", "list what one rule (id or name), or a whole run, would move; nothing moves",
     1, 1, RunPreview},
    {"rules", "rules", "the rules in run order: position, id, on/off, age window and states in words", 0, 4,
     RunRulesCommand},
    {"export", "export FILE", "write every rule to FILE (rowset XML)", 1, 1, RunExport},
    {"import", "import [--from FORMAT] FILE [...]",
     "append the rules of FILE (rowset XML, as export writes it)\n"
     "                                       --from sieve|thunderbird|mdb: another tool's rules, printing what did not\n"
     "                                       map; --create-folders, --store NAME (default: the first store)",
     1, 6, RunImport},
    {"folders", "folders", "print every store's folders with the identifiers rules use", 0, 0, RunFolders},
    {"undo", "undo [--run N]", "move back what the last run (or run N) moved, where it is still where the run put it",
     0, 2, RunUndoCommand},
    {"history", "history [N]", "recent runs: when, what started them, what each rule moved; N: that run's messages", 0,
     1, RunHistory},
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
    for (const Command* c = kCommands; c->name; ++c) {
        std::fprintf(out, "  %-36s %s\n", c->usage, c->summary);
        if (std::strcmp(c->name, "rules") == 0)
            for (const RulesAction& a : kRulesActions) std::fprintf(out, "  %-36s %s\n", a.usage, a.summary);
    }
    std::fputs("\noptions:\n"
               "  --profile FILE   the stores to use (default $XDG_CONFIG_HOME/Mailvane/profile.ini,\n"
               "                   else the local Maildir in the data folder)\n"
               "  --yes, --no      the answer to every question (default: the answer that changes\n"
               "                   nothing: No to a Yes/No question, Cancel where offered;\n"
               "                   rules delete asks on the terminal instead)\n"
               "  --headless       run as a service: timers and new-mail runs until SIGTERM/SIGINT\n"
               "  --help           this text\n"
               "  --version        print \"mailvane\" and the version, then exit\n"
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
