// mailvane import: the ordinary rowset-XML import, and rules from other
// tools (--from FORMAT) translated, resolved against the target store and
// appended through that same import, so the rule database receives exactly
// what an XML import writes.

#include "Commands.h"

#include "ExitCodes.h"
#include "Runtime.h"
#include "addin/OutAddIn.h"
#include "core/StoreSet.h"
#include "importers/MdbImporter.h"
#include "importers/RuleImportWriter.h"
#include "importers/SieveImporter.h"
#include "importers/ThunderbirdImporter.h"
#include "platform/ado/AdoError.h"
#include "platform/ado/RowsetXml.h"
#include "store/cDB.h"

#include <QFile>
#include <QTemporaryDir>

namespace mv::host {

namespace {

Result<importers::ImportedRules> FromMdb(const QString& path)
{
    return importers::MdbImporter().FromFile(path);
}

// The text formats: the file as UTF-8, then the translator.
template <Result<importers::ImportedRules> (*FromText)(const QString&)>
Result<importers::ImportedRules> FromTextFile(const QString& path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return Error::notFound(QStringLiteral("cannot read %1: %2").arg(path, file.errorString()));
    return FromText(QString::fromUtf8(file.readAll()));
}

struct Format {
    const char* name;
    Result<importers::ImportedRules> (*read)(const QString& path);
};
const Format kFormats[] = {
    {"sieve", FromTextFile<importers::SieveImporter::FromScript>},
    {"thunderbird", FromTextFile<importers::ThunderbirdImporter::FromText>},
    {"mdb", FromMdb},
};

struct ImportArgs {
    QString format, file, store;
    bool createFolders = false;
};

std::optional<ImportArgs> ParseArgs(const QStringList& args)
{
    ImportArgs a;
    for (qsizetype i = 0; i < args.size(); ++i) {
        const QString& arg = args.at(i);
        const bool hasValue = i + 1 < args.size();
        if (arg == QLatin1String("--from") && hasValue)
            a.format = args.at(++i);
        else if (arg == QLatin1String("--store") && hasValue)
            a.store = args.at(++i);
        else if (arg == QLatin1String("--create-folders"))
            a.createFolders = true;
        else if (!arg.startsWith(QLatin1String("--")) && a.file.isEmpty())
            a.file = arg;
        else {
            Err(QStringLiteral("import: unexpected %1").arg(arg));
            return std::nullopt;
        }
    }
    if (a.file.isEmpty()) {
        Err(QStringLiteral("import: no file given"));
        return std::nullopt;
    }
    if (a.format.isEmpty() && (a.createFolders || !a.store.isEmpty())) {
        Err(QStringLiteral("import: --create-folders and --store go with --from"));
        return std::nullopt;
    }
    return a;
}

mapi::MessageStore* TargetStore(CommandContext& ctx, const QString& name)
{
    const auto stores = ctx.runtime.Stores().Stores();
    for (mapi::MessageStore* s : stores)
        if (name.isEmpty() || s->DisplayName().compare(name, Qt::CaseInsensitive) == 0) return s;
    QStringList names;
    for (mapi::MessageStore* s : stores) names << s->DisplayName();
    Err(QStringLiteral("import: no store named \"%1\" (stores: %2)")
            .arg(name, names.join(QStringLiteral(", "))));
    return nullptr;
}

std::optional<std::vector<importers::AgeWindowRow>> AgeWindows(store::cDB& db)
{
    std::unique_ptr<ado::Recordset> rs;
    if (!db.CreateRS(rs, QStringLiteral("SELECT MsgAgeID, timeField, timeDiff FROM MsgAge")))
        return std::nullopt;
    std::vector<importers::AgeWindowRow> rows;
    for (; !rs->IsEOF(); rs->MoveNext())
        rows.push_back({rs->Value(QStringLiteral("MsgAgeID")).toInt(),
                        rs->Value(QStringLiteral("timeField")).toString(),
                        rs->Value(QStringLiteral("timeDiff")).toInt()});
    return rows;
}

void PrintReport(CommandContext& ctx, const importers::ImportedRules& rules,
                 const importers::RuleImportWriter& writer, const QString& store)
{
    int off = 0, parts = static_cast<int>(rules.unmapped.size());
    for (const importers::ImportedRule& r : rules.rules) {
        PrintLine(ctx.out, QStringLiteral("  %1%2").arg(r.record.ruleName, r.record.active.value_or(-1)
                                                                               ? QString()
                                                                               : QStringLiteral("  (off)")));
        for (const QString& u : r.unmapped) PrintLine(ctx.out, QStringLiteral("      not mapped: ") + u);
        off += r.record.active.value_or(-1) ? 0 : 1;
        parts += static_cast<int>(r.unmapped.size());
    }
    for (const QString& u : rules.unmapped) PrintLine(ctx.out, QStringLiteral("  not mapped: ") + u);
    if (!writer.Created().isEmpty())
        PrintLine(ctx.out, QStringLiteral("Folders created in %1: %2")
                               .arg(store, writer.Created().join(QStringLiteral(", "))));
    if (!writer.Missing().isEmpty())
        PrintLine(ctx.out, QStringLiteral("Folders missing in %1 (--create-folders creates them): %2")
                               .arg(store, writer.Missing().join(QStringLiteral(", "))));
    PrintLine(ctx.out,
              QStringLiteral("%1 rule(s) imported, %2 of them switched off; %3 part(s) did not map%4")
                  .arg(rules.rules.size())
                  .arg(off)
                  .arg(parts)
                  .arg(parts ? QStringLiteral(": rules with such parts are off until checked") : QString()));
}

int ImportForeign(CommandContext& ctx, const ImportArgs& args)
{
    const Format* format = nullptr;
    for (const Format& f : kFormats)
        if (args.format == QLatin1String(f.name)) format = &f;
    if (!format) {
        Err(QStringLiteral("import: unknown format \"%1\" (use sieve, thunderbird or mdb)").arg(args.format));
        return kExitUsage;
    }
    auto rules = format->read(args.file);
    if (!rules) {
        Err(QStringLiteral("import --from %1: %2").arg(args.format, rules.error().message));
        return kExitRunFailed;
    }
    mapi::MessageStore* target = TargetStore(ctx, args.store);
    if (!target) return kExitUsage;
    store::cDB* db = ctx.runtime.AddIn().DB1();
    std::unique_ptr<ado::Recordset> schema;
    const auto ages = db ? AgeWindows(*db) : std::nullopt;
    // No row has a null key: this reads the Rules table's columns only.
    if (!ages || !db->CreateRS(schema, QStringLiteral("SELECT * FROM Rules WHERE RuleID IS NULL"))) {
        Err(QStringLiteral("import: cannot read the rule database"));
        return kExitDatabase;
    }
    importers::RuleImportWriter writer(*target, ctx.runtime.Stores().Stores(), *ages, args.createFolders);
    auto rows = writer.Rows(*rules, schema->Data(), ctx.runtime.AddIn().GetMaxSortID() + 1);
    if (!rows) {
        Err(QStringLiteral("import: %1: %2").arg(target->DisplayName(), rows.error().message));
        return kExitStore;
    }
    PrintLine(ctx.out,
              QStringLiteral("From %1 (%2) into %3:").arg(args.file, args.format, target->DisplayName()));
    PrintReport(ctx, *rules, writer, target->DisplayName());
    if (!rows->rows.empty()) {
        QTemporaryDir tmp;
        const QString path = tmp.filePath(QStringLiteral("imported-rules.xml"));
        try {
            if (!tmp.isValid()) throw ado::AdoError(0, QStringLiteral("import"), tmp.errorString());
            ado::RowsetXml::WriteFile(*rows, path);
        } catch (const ado::AdoError& e) {
            Err(QStringLiteral("import: cannot write the translated rules: %1").arg(e.Description()));
            return kExitRunFailed;
        }
        if (!ctx.runtime.AddIn().ImportRulesFrom(path)) return kExitRunFailed;
    }
    return rules->Complete() ? kExitOk : kExitRunFailed;
}

}  // namespace

int RunImport(CommandContext& ctx)
{
    const auto args = ParseArgs(ctx.args);
    if (!args) return kExitUsage;
    if (!args->format.isEmpty()) return ImportForeign(ctx, *args);
    return ctx.runtime.AddIn().ImportRulesFrom(args->file) ? kExitOk : kExitRunFailed;
}

}  // namespace mv::host
