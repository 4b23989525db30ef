#include "MdbImporter.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QStandardPaths>

#include <algorithm>

namespace mv::importers {

namespace {

using Field = std::optional<QString>;  // nullopt: null
using CsvRow = std::vector<Field>;

// mdb-export's CSV: "," between fields, "\n" between rows, text in double
// quotes with quotes doubled; a quoted field may hold line breaks.
std::vector<CsvRow> ParseCsv(const QString& s)
{
    std::vector<CsvRow> rows;
    CsvRow row;
    qsizetype i = 0;
    while (i < s.size()) {
        Field f;
        if (s.at(i) == u'"') {
            QString v;
            for (++i; i < s.size(); ++i) {
                if (s.at(i) == u'"') {
                    if (i + 1 < s.size() && s.at(i + 1) == u'"')
                        ++i;
                    else
                        break;
                }
                v += s.at(i);
            }
            ++i;
            f = v;
        } else {
            const qsizetype start = i;
            while (i < s.size() && s.at(i) != u',' && s.at(i) != u'\n' && s.at(i) != u'\r') ++i;
            if (i > start) f = s.mid(start, i - start);
        }
        row.push_back(f);
        while (i < s.size() && s.at(i) == u'\r') ++i;
        if (i >= s.size() || s.at(i) == u'\n') {
            rows.push_back(std::move(row));
            row.clear();
        }
        ++i;
    }
    return rows;
}

struct Column {
    const char* name;
    void (*set)(ImportedRule& rule, const QString& value, QStringList& problems);
};

template <QString engine::RuleRecord::*M>
void Text(ImportedRule& r, const QString& v, QStringList&)
{
    r.record.*M = v;
}

template <std::optional<int> engine::RuleRecord::*M>
void Number(ImportedRule& r, const QString& v, QStringList& problems)
{
    bool ok = false;
    const int n = v.toInt(&ok);
    if (ok)
        r.record.*M = n;
    else
        problems << QStringLiteral("\"%1\" is not a number").arg(v);
}

template <QString ForeignFolder::*M>
void SourceId(ImportedRule& r, const QString& v, QStringList&)
{
    r.source.*M = v;
}

template <QString ForeignFolder::*M>
void DestinationId(ImportedRule& r, const QString& v, QStringList&)
{
    r.destination.*M = v;
}

void Ignore(ImportedRule&, const QString&, QStringList&) {}

// Jet Yes/No comes out of mdbtools as 1; the table's own Integer as -1.
void Active(ImportedRule& r, const QString& v, QStringList& problems)
{
    Number<&engine::RuleRecord::active>(r, v, problems);
    if (r.record.active && *r.record.active != 0) r.record.active = -1;
}

constexpr Column kColumns[] = {
    {"RuleID", Ignore},  // new rules get new ids
    {"RuleName", Text<&engine::RuleRecord::ruleName>},
    {"FromAddress", Text<&engine::RuleRecord::fromAddress>},
    {"ToAddress", Text<&engine::RuleRecord::toAddress>},
    {"CcAddress", Text<&engine::RuleRecord::ccAddress>},
    {"Subject", Text<&engine::RuleRecord::subject>},
    {"Importance", Number<&engine::RuleRecord::importance>},
    {"Status", Number<&engine::RuleRecord::status>},
    {"FlagStatus", Number<&engine::RuleRecord::flagStatus>},
    {"MsgAgeID", Number<&engine::RuleRecord::msgAgeId>},
    {"SrcEntryID", SourceId<&ForeignFolder::entryIdHex>},
    {"SrcStoreID", SourceId<&ForeignFolder::storeIdHex>},
    {"DstEntryID", DestinationId<&ForeignFolder::entryIdHex>},
    {"DstStoreID", DestinationId<&ForeignFolder::storeIdHex>},
    {"Active", Active},
    {"SortID", Number<&engine::RuleRecord::sortId>},
    {"LastVerb", Number<&engine::RuleRecord::lastVerb>},
    {"Message", Text<&engine::RuleRecord::message>},
};

constexpr const char* kRequired[] = {"RuleName", "SrcEntryID", "SrcStoreID", "DstEntryID", "DstStoreID"};

const Column* FindColumn(const QString& name)
{
    for (const Column& c : kColumns)
        if (name.compare(QLatin1String(c.name), Qt::CaseInsensitive) == 0) return &c;
    return nullptr;
}

}  // namespace

Result<ImportedRules> MdbImporter::FromCsv(const QByteArray& csv)
{
    std::vector<CsvRow> rows = ParseCsv(QString::fromUtf8(csv));
    if (rows.empty())
        return Error::permanent(QStringLiteral("the Rules table came out empty, without its column names"));
    QStringList header;
    for (const Field& f : rows.front()) header << f.value_or(QString());
    for (const char* r : kRequired)
        if (!header.contains(QLatin1String(r), Qt::CaseInsensitive))
            return Error::permanent(
                QStringLiteral("the Rules table has no %1 column, so it does not hold this "
                               "program's rules (its columns: %2)")
                    .arg(QLatin1String(r), header.join(QStringLiteral(", "))));
    ImportedRules out;
    QStringList unknownWithValues;
    for (size_t r = 1; r < rows.size(); ++r) {
        if (rows[r].size() == 1 && !rows[r].front()) continue;  // a blank line
        ImportedRule rule;
        rule.record.active = -1;
        for (size_t c = 0; c < static_cast<size_t>(header.size()) && c < rows[r].size(); ++c) {
            if (!rows[r][c]) continue;
            const Column* column = FindColumn(header.at(c));
            if (!column) {
                if (!unknownWithValues.contains(header.at(c))) unknownWithValues << header.at(c);
                continue;
            }
            QStringList problems;
            column->set(rule, *rows[r][c], problems);
            for (const QString& p : problems) rule.unmapped << QStringLiteral("%1: %2").arg(header.at(c), p);
        }
        if (!rule.source.HasIds())
            rule.unmapped << QStringLiteral("the row names no source folder, so the Inbox stands in");
        if (rows[r].size() != static_cast<size_t>(header.size()))
            rule.unmapped << QStringLiteral("row %1 has %2 fields, the header %3")
                                 .arg(r)
                                 .arg(rows[r].size())
                                 .arg(header.size());
        out.rules.push_back(std::move(rule));
    }
    for (const QString& c : unknownWithValues)
        out.unmapped
            << QStringLiteral("the column %1 is not one a rule has; its values were left out").arg(c);
    std::stable_sort(out.rules.begin(), out.rules.end(), [](const ImportedRule& a, const ImportedRule& b) {
        return a.record.sortId.value_or(0) < b.record.sortId.value_or(0);
    });
    return out;
}

Result<QByteArray> MdbImporter::Run(const QString& tool, const QStringList& args) const
{
    const QString program =
        m_toolDir.isEmpty() ? QStandardPaths::findExecutable(tool) : QDir(m_toolDir).filePath(tool);
    if (program.isEmpty() || !QFileInfo(program).isExecutable())
        return Error::notFound(
            QStringLiteral("%1 was not found: mdbtools reads Jet files and is not installed "
                           "(Debian package mdbtools)")
                .arg(tool));
    QProcess p;
    p.start(program, args);
    if (!p.waitForFinished(60000) || p.exitStatus() != QProcess::NormalExit || p.exitCode() != 0) {
        const QString why =
            QString::fromLocal8Bit(p.readAllStandardError()).trimmed().replace(u'\n', QStringLiteral("; "));
        return Error::permanent(QStringLiteral("%1 could not read the file: %2")
                                    .arg(tool, why.isEmpty() ? p.errorString() : why));
    }
    return p.readAllStandardOutput();
}

Result<ImportedRules> MdbImporter::FromFile(const QString& path) const
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return Error::notFound(QStringLiteral("cannot read %1: %2").arg(path, file.errorString()));
    const QByteArray head = file.read(32);
    if (head.startsWith(QByteArrayLiteral("SQLite format 3")))
        return Error::permanent(
            QStringLiteral("%1 is a rule database of this program (SQLite), not a Jet file: "
                           "export its rules with \"mailvane export\" and import that file")
                .arg(path));
    const QByteArray kind = head.mid(4, 15);
    if (kind != "Standard Jet DB" && kind != "Standard ACE DB")
        return Error::permanent(
            QStringLiteral("%1 is not a Jet database (such a file begins with \"Standard Jet "
                           "DB\" at byte 4)")
                .arg(path));
    auto tables = Run(QStringLiteral("mdb-tables"), {QStringLiteral("-1"), path});
    if (!tables) return tables.error();
    QStringList names = QString::fromUtf8(*tables).split(u'\n', Qt::SkipEmptyParts);
    for (QString& n : names) n = n.trimmed();
    const auto rules = std::find_if(names.cbegin(), names.cend(), [](const QString& n) {
        return n.compare(QLatin1String("Rules"), Qt::CaseInsensitive) == 0;
    });
    if (rules == names.cend())
        return Error::permanent(
            QStringLiteral("%1 has no Rules table, so it is not a rule database (its tables: %2)")
                .arg(path, names.isEmpty() ? QStringLiteral("none") : names.join(QStringLiteral(", "))));
    auto csv = Run(QStringLiteral("mdb-export"), {QStringLiteral("-b"), QStringLiteral("hex"), path, *rules});
    if (!csv) return csv.error();
    return FromCsv(*csv);
}

}  // namespace mv::importers
