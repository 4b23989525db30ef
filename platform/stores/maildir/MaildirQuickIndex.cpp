#include "MaildirQuickIndex.h"

#include "platform/mapi/RestrictionOrder.h"

#include <QCryptographicHash>
#include <QHash>

#include <algorithm>

namespace mv::stores::maildir {

namespace {

// Whether `file` holds the message `a` was read of, under the same identity.
bool Holds(const MessageIndexFile& file, const LearnedAnswer& a)
{
    const MessageIndexFile::RecordView r = file.find(a.key);
    return !r.isNull() && r.size() == a.size && r.stamp() == a.stamp;
}

}  // namespace

BodyTerms BodyTerms::Of(const mapi::Restriction& root)
{
    BodyTerms terms;
    terms.Collect(root);
    return terms;
}

void BodyTerms::Collect(const mapi::Restriction& node)
{
    if (node.kind == mapi::RES_CONTENT && mapi::RestrictionOrder::ReadsBody(node.propTag))
        m_keys.emplace_back(&node, MessageIndexFile::BodyTermKey(node));
    for (const mapi::Restriction& child : node.children()) Collect(child);
}

quint64 BodyTerms::KeyOf(const mapi::Restriction& node) const
{
    for (const auto& [n, key] : m_keys)
        if (n == &node) return key;
    return MessageIndexFile::BodyTermKey(node);
}

QByteArray MaildirQuickIndex::AuxOf(const QString& relName, const QString& unique)
{
    QByteArray aux = relName.toUtf8();
    const QByteArray u = unique.toUtf8();
    const qsizetype at = aux.indexOf('/') + 1;
    if (!u.isEmpty() && QByteArrayView(aux).sliced(at).startsWith(u)) aux.replace(at, u.size(), QByteArray(1, '\0'));
    return aux;
}

QString MaildirQuickIndex::RelNameOf(QByteArrayView aux, QByteArrayView key)
{
    QByteArray name = aux.toByteArray();
    if (const qsizetype at = name.indexOf('\0'); at >= 0) name.replace(at, 1, key.toByteArray());
    return QString::fromUtf8(name);
}

QString MaildirQuickIndex::FileFor(const QString& folderPath) const
{
    const QByteArray hash = QCryptographicHash::hash(folderPath.toUtf8(), QCryptographicHash::Sha1).toHex();
    return m_directory + QLatin1Char('/') + QString::fromLatin1(hash) + QStringLiteral(".mvix");
}

MessageIndexFile* MaildirQuickIndex::Any(const QString& folderPath)
{
    auto it = m_files.find(folderPath);
    if (it == m_files.end()) {
        auto opened = MessageIndexFile::Open(FileFor(folderPath));
        it = m_files.emplace(folderPath, opened ? std::move(opened).value() : nullptr).first;
    }
    return it->second.get();
}

MessageIndexFile* MaildirQuickIndex::Current(const QString& folderPath, const QString& dir)
{
    MessageIndexFile* file = Any(folderPath);
    if (!file || m_changed.count(folderPath)) return nullptr;
    const QByteArray validity = file->validity();
    if (validity.isEmpty() || validity != MaildirFolderState::ValidityNow(dir)) return nullptr;
    return file;
}

void MaildirQuickIndex::Learn(const QString& folderPath, std::vector<LearnedAnswer> answers)
{
    if (answers.empty()) return;
    MessageIndexFile* file = Any(folderPath);
    for (LearnedAnswer& a : answers) {
        // The file keeps the answers of the messages it holds as they were
        // read; the others (new, or changed since) wait for the folder's
        // records at Flush.
        if (file && Holds(*file, a)) file->RememberBody(a.key, a.term, a.answer);
        else m_learned[folderPath].push_back(std::move(a));
    }
}

MessageIndexFile::Record MaildirQuickIndex::RecordOf(const CachedMessage& message)
{
    MessageIndexFile::Record r;
    r.key = message.file.unique.toUtf8();
    r.aux = AuxOf(message.file.relName, message.file.unique);
    r.size = message.file.size;
    r.stamp = message.file.mtimeNs;
    r.dateMs = message.delivered.toMSecsSinceEpoch();
    r.flags = message.flags().deleted ? kIndexFlagTrashed : 0;
    // Flag properties first: they win over the parser's (PR_MESSAGE_FLAGS
    // holds the structure bits merged with the flags).
    r.props = message.flagProps();
    if (const HeaderProps* header = message.file.header.get()) {
        for (const auto& [tag, value] : header->props) {
            const bool shadowed = std::any_of(r.props.begin(), r.props.end(), [&](const auto& p) { return p.first == tag; });
            if (!shadowed) r.props.emplace_back(tag, value);
        }
        for (const HeaderProps::Flat& row : header->recipients) {
            MessageIndexFile::Props& out = r.recipients.emplace_back(row);
            if (std::none_of(row.begin(), row.end(), [](const auto& p) { return p.first == mapi::PR_ADDRTYPE; }))
                out.emplace_back(mapi::PR_ADDRTYPE, HeaderProps::kRecipientAddrType);
        }
    }
    return r;
}

Status MaildirQuickIndex::Flush(const std::function<const MaildirFolderState*(const QString&)>& stateOf)
{
    Status result = Status::success();
    // Every folder changed, or with answers its file keeps or waits for.
    std::map<QString, bool> folders = m_changed;
    for (const auto& [path, file] : m_files) folders.emplace(path, false);
    for (const auto& [path, changed] : folders) {
        MessageIndexFile* file = Any(path);
        if (!file) continue;
        const MaildirFolderState* state = changed ? stateOf(path) : nullptr;
        if (state && state->loaded()) {
            // Written record by record: a folder of 100,000 messages would
            // otherwise be held a second time while the file is written.
            QHash<QByteArray, std::vector<const LearnedAnswer*>> learned;
            if (auto it = m_learned.find(path); it != m_learned.end()) {
                for (const LearnedAnswer& a : it->second) learned[a.key].push_back(&a);
            }
            auto write = [&](const std::vector<const CachedMessage*>& messages) {
                return file->Rewrite(state->trustedValidity(), qsizetype(messages.size()), [&](qsizetype i) {
                    MessageIndexFile::Record r = RecordOf(*messages[size_t(i)]);
                    for (const LearnedAnswer* a : learned.value(r.key))
                        if (a->size == r.size && a->stamp == r.stamp)
                            r.bodyAnswers.push_back((a->term & ~quint64(1)) | (a->answer ? 1 : 0));
                    return r;
                });
            };
            Status s = write(state->ordered());
            if (!s && s.error().kind == ErrorKind::Permanent) {
                // Keys out of order: names beyond the BMP sort otherwise in
                // UTF-16 (the folder's order) than in UTF-8 (the file's).
                std::vector<const CachedMessage*> sorted = state->ordered();
                std::sort(sorted.begin(), sorted.end(), [](const CachedMessage* a, const CachedMessage* b) {
                    return a->file.unique.toUtf8() < b->file.unique.toUtf8();
                });
                s = write(sorted);
            }
            if (!s && result.ok()) result = s;
            continue;  // written, or the old file left as it was
        } else if (changed) {
            file->SetValidity({});  // changed, but no state to write from: not to be trusted
        }
        if (Status s = file->Commit(); !s && result.ok()) result = s;
    }
    m_changed.clear();
    m_learned.clear();
    return result;
}

}  // namespace mv::stores::maildir
