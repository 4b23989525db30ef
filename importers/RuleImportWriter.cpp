#include "RuleImportWriter.h"

#include "platform/mapi/MapiUtils.h"

#include <QHash>

#include <set>

namespace mv::importers {

namespace {

QString Hex(const QByteArray& id)
{
    return mapi::MapiUtils::HrGetHexFromBinary(id);
}

// The ways a path may be written by the tools: as it stands; with "." as
// the separator (Maildir++ servers); under the "INBOX" prefix a server's
// namespace adds. First match wins, so a folder whose name holds a dot is
// found before the dotted reading is tried.
QStringList Spellings(const QString& path)
{
    QStringList s{path};
    if (!path.contains(u'/')) s << QString(path).replace(u'.', u'/');
    for (const QString& p : QStringList(s))
        for (const char* prefix : {"INBOX/", "INBOX."})
            if (p.startsWith(QLatin1String(prefix), Qt::CaseInsensitive)) s << p.mid(6);
    return s;
}

}  // namespace

RuleImportWriter::RuleImportWriter(mapi::MessageStore& target, std::vector<mapi::MessageStore*> stores,
                                   std::vector<AgeWindowRow> ageWindows, bool createFolders)
    : m_target(target),
      m_stores(std::move(stores)),
      m_ages(std::move(ageWindows)),
      m_createFolders(createFolders)
{
}

QByteArray RuleImportWriter::Find(const QString& path) const
{
    for (Qt::CaseSensitivity cs : {Qt::CaseSensitive, Qt::CaseInsensitive})
        for (const mapi::FolderInfo& f : m_folders)
            if (f.path.compare(path, cs) == 0) return f.entryId;
    return {};
}

Result<QByteArray> RuleImportWriter::ByPath(const QString& path, QStringList& unmapped)
{
    if (path.isEmpty()) {  // the Inbox
        for (const mapi::FolderInfo& f : m_folders)
            if (f.specialUse == QLatin1String("\\Inbox")) return f.entryId;
        if (QByteArray id = Find(QStringLiteral("Inbox")); !id.isEmpty()) return id;
        return Error::notFound(QStringLiteral("%1 has no Inbox, where imported rules take their mail from")
                                   .arg(m_target.DisplayName()));
    }
    for (const QString& s : Spellings(path))
        if (QByteArray id = Find(s); !id.isEmpty()) return id;
    if (!m_createFolders) {
        if (!m_missing.contains(path)) m_missing << path;
        unmapped << QStringLiteral("the folder \"%1\" does not exist in %2 (--create-folders creates it)")
                        .arg(path, m_target.DisplayName());
        return QByteArray();
    }
    QByteArray parent;
    QString sofar;
    for (const QString& level : path.split(u'/', Qt::SkipEmptyParts)) {
        sofar = sofar.isEmpty() ? level : sofar + u'/' + level;
        QByteArray id = Find(sofar);
        if (id.isEmpty()) {
            auto made = m_target.CreateFolder(parent, level);
            if (!made) {
                unmapped << QStringLiteral("the folder \"%1\" could not be created: %2")
                                .arg(sofar, made.error().message);
                return QByteArray();
            }
            id = *made;
            mapi::FolderInfo info;
            info.entryId = id;
            info.parentId = parent;
            info.name = level;
            info.path = sofar;
            m_folders.push_back(info);
            m_created << sofar;
        }
        parent = id;
    }
    return parent;
}

Result<std::pair<QString, QString>> RuleImportWriter::Resolve(const ForeignFolder& folder, const char* role,
                                                              QStringList& unmapped)
{
    if (!folder.HasIds()) {
        auto id = ByPath(folder.path, unmapped);
        if (!id) return id.error();
        if (id->isEmpty()) return std::pair<QString, QString>();
        return std::pair(Hex(*id), Hex(m_target.StoreId()));
    }
    // A stored rule's folder: kept when a run would find it in this profile.
    if (const auto found = m_stores.GetFolderFromID(folder.entryIdHex, folder.storeIdHex))
        return std::pair(found->EntryID(), found->StoreID());
    unmapped << QStringLiteral(
                    "the %1 folder (entry %2) is not in this profile's stores: choose it in the rule "
                    "editor")
                    .arg(QLatin1String(role), folder.entryIdHex.left(48));
    return std::pair(folder.entryIdHex, folder.storeIdHex);
}

std::optional<int> RuleImportWriter::AgeWindow(const ImportedRule& rule, QStringList& unmapped) const
{
    if (rule.olderThanDays) {
        const int days = *rule.olderThanDays;
        for (const AgeWindowRow& a : m_ages)
            if ((a.timeField == QLatin1String("d") && a.timeDiff == -days) ||
                (a.timeField == QLatin1String("ww") && days % 7 == 0 && a.timeDiff == -days / 7))
                return a.msgAgeId;
        std::set<int> lengths;
        for (const AgeWindowRow& a : m_ages)
            if (a.timeField == QLatin1String("d"))
                lengths.insert(-a.timeDiff);
            else if (a.timeField == QLatin1String("ww"))
                lengths.insert(-7 * a.timeDiff);
        QStringList words;
        for (int n : lengths) words << QString::number(n);
        unmapped << QStringLiteral("older than %1 days: no age window has that length (days: %2)")
                        .arg(days)
                        .arg(words.join(QStringLiteral(", ")));
        return std::nullopt;
    }
    if (!rule.record.msgAgeId) return std::nullopt;
    for (const AgeWindowRow& a : m_ages)
        if (a.msgAgeId == *rule.record.msgAgeId) return a.msgAgeId;
    unmapped << QStringLiteral("the age window %1 is not in this database's MsgAge table")
                    .arg(*rule.record.msgAgeId);
    return std::nullopt;
}

Result<ado::RowsetData> RuleImportWriter::Rows(ImportedRules& rules, const ado::RowsetData& schema,
                                               int firstSortId)
{
    auto folders = m_target.Folders();
    if (!folders) return folders.error();
    m_folders = *folders;
    ado::RowsetData out;
    out.columns = schema.columns;
    int sortId = firstSortId;
    for (ImportedRule& rule : rules.rules) {
        const auto src = Resolve(rule.source, "source", rule.unmapped);
        if (!src) return src.error();
        // An empty destination is no folder, never the Inbox.
        const bool noDestination = rule.destination.IsInbox();
        if (noDestination) rule.unmapped << QStringLiteral("no destination folder");
        const auto dst = noDestination ? Result<std::pair<QString, QString>>(std::pair<QString, QString>())
                                       : Resolve(rule.destination, "destination", rule.unmapped);
        if (!dst) return dst.error();
        const engine::RuleRecord& r = rule.record;
        const int age = AgeWindow(rule, rule.unmapped).value_or(engine::kMsgAgeAnyTime);
        if (!rule.unmapped.isEmpty()) rule.record.active = 0;
        const QHash<QString, QVariant> values{
            {QStringLiteral("rulename"), r.ruleName},
            {QStringLiteral("fromaddress"), r.fromAddress},
            {QStringLiteral("toaddress"), r.toAddress},
            {QStringLiteral("ccaddress"), r.ccAddress},
            {QStringLiteral("subject"), r.subject},
            {QStringLiteral("importance"), r.importance.value_or(engine::kImportanceDontCare)},
            {QStringLiteral("status"), r.status.value_or(engine::kStatusDontCare)},
            {QStringLiteral("flagstatus"), r.flagStatus.value_or(engine::kFlagDontCare)},
            {QStringLiteral("msgageid"), age},
            {QStringLiteral("srcentryid"), src->first},
            {QStringLiteral("srcstoreid"), src->second},
            {QStringLiteral("dstentryid"), dst->first},
            {QStringLiteral("dststoreid"), dst->second},
            {QStringLiteral("active"), r.active.value_or(-1)},
            {QStringLiteral("sortid"), sortId++},
            {QStringLiteral("lastverb"), r.lastVerb.value_or(engine::kLastVerbDontCare)},
            {QStringLiteral("message"), r.message},
        };
        std::vector<QVariant> row;
        for (const ado::RowsetColumn& c : schema.columns) row.push_back(values.value(c.name.toLower()));
        out.rows.push_back(std::move(row));
    }
    return out;
}

}  // namespace mv::importers
