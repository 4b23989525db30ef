#pragma once
// Queries of IMAP folders, with the records the moves and flag changes of a
// rule then reuse.
//
// The restriction becomes one UID SEARCH (SearchWriter), the candidates'
// flags, date and the header fields the check and the columns read
// (FetchNeeds) are fetched in batches, and, unless the search answer is
// exact, the restriction is checked on the resulting records, so the answer
// is the one the other backends give. The structure is fetched only for
// messages whose class the Content-Type field leaves open, PR_BODY only
// when the check reaches a body term.
//
// Anticipate: on a server with CONDSTORE, the next rules' queries are told
// ahead. When several will ask the same folder, it is read once into an
// ImapFolderImage and they are matched there, the image brought up to date
// before each (STATUS, then CHANGEDSINCE); other queries run ahead on a
// second connection (ImapLookahead), and the query then asks only what
// changed since. Either way the answer is the one a query would have had.
//
// Not thread-safe but for Gather, which the lookahead's thread runs.

#include "ImapFolderImage.h"
#include "ImapLookahead.h"
#include "ImapMirror.h"
#include "ImapSession.h"
#include "SearchWriter.h"
#include "platform/mapi/MessageStore.h"

#include <QHash>
#include <QSet>
#include <QTimer>

#include <map>
#include <memory>
#include <optional>
#include <vector>

namespace mv::stores {

class FetchNeeds;
struct FetchedMessage;

class ImapQuery {
public:
    // `session` is borrowed and outlives the query; `storeId` goes in every record.
    ImapQuery(ImapSession& session, QByteArray storeId);
    ~ImapQuery();

    Result<std::vector<mapi::Row>> Query(const QByteArray& folderId, const mapi::Restriction* restriction,
                                         const std::vector<mapi::PropTag>& columns);
    Result<mapi::MessageRecord> Item(const QByteArray& messageId);
    Result<QByteArray> RawMessage(const QByteArray& messageId);
    void Anticipate(const QByteArray& folderId, const mapi::Restriction& restriction,
                    const std::vector<mapi::PropTag>& columns);

    // Keeps a persistent mirror of the queried folders in `folder` (empty:
    // none); header, flag and age queries are then answered from it.
    void SetMirrorFolder(const QString& folder);
    ImapMirror* mirror() const { return m_mirror.get(); }

    // What the last query fetched of this message, or null: a rule's move
    // and flag change that follow its query ask nothing more. The flags
    // may be updated by whoever changes them.
    GatheredRows::Fetched* Queried(const ImapFolderRef& folder, quint32 uid);
    // These messages left the folder: out of the image and the last query's answer.
    void Forget(const ImapFolderRef& folder, const std::vector<quint32>& uids);
    // Commands of the lookahead's connection.
    int LookaheadCommands() const;

    // UID sets of up to a batch of UIDs that stay short enough for one line.
    static std::vector<QByteArray> UidBatches(const std::vector<quint32>& uids);

private:
    // Flags, date, size and these header fields of the UIDs, in batches.
    static Result<std::vector<FetchedMessage>> FetchFields(ImapConnection& conn, const std::vector<quint32>& uids,
                                                           const QByteArray& fields);
    Result<std::vector<FetchedMessage>> FetchHeaders(ImapConnection& conn, const std::vector<quint32>& uids,
                                                     const FetchNeeds& needs) const;
    // The class of each of these messages from its structure (and the text
    // of a calendar part that names no method), by UID.
    Result<QHash<quint32, QString>> FetchClasses(ImapConnection& conn, const std::vector<quint32>& uids) const;
    // `light`: the record is made from the fetched fields alone (FetchNeeds::light).
    mapi::MessageRecord BuildRecord(const FetchedMessage& m, const ImapFolderRef& folder, bool light) const;
    Result<std::vector<mapi::Row>> QueryOn(ImapConnection& conn, const ImapFolderRef& folder,
                                           const mapi::Restriction* restriction, const std::vector<mapi::PropTag>& columns);
    static SearchKeys Keys(const ImapConnection& conn, const mapi::Restriction* restriction);
    // Search, fetch and check on a connection with the folder selected. Safe
    // on the lookahead's thread: it reads only what never changes.
    Result<GatheredRows> Gather(ImapConnection& conn, const ImapFolderRef& folder, const mapi::Restriction* restriction,
                                const std::vector<mapi::PropTag>& columns, const SearchKeys& keys) const;
    // The lookahead's answer brought up to date, or nothing (then query).
    std::optional<GatheredRows> FromLookahead(ImapConnection& conn, const ImapFolderRef& folder,
                                              const mapi::Restriction& restriction,
                                              const std::vector<mapi::PropTag>& columns, const SearchKeys& keys);
    // Hands the told queries to the lookahead, but those a folder image will answer.
    void SendAhead();
    // The fields the image must hold for the query, or nothing when an image cannot answer it.
    static std::optional<QByteArrayList> ImageFields(const mapi::Restriction* restriction,
                                                     const std::vector<mapi::PropTag>& columns);
    bool ImageWanted(const QByteArray& folderKey) const;
    // The answer from the folder's image, made or brought up to date first;
    // nothing when the folder cannot have one. `fields`: what the query reads.
    Result<std::optional<GatheredRows>> FromImage(ImapConnection& conn, const ImapFolderRef& folder,
                                                  const mapi::Restriction* restriction,
                                                  const std::vector<mapi::PropTag>& columns,
                                                  const QByteArrayList& fields);
    // The answer from the folder's mirror brought up to date; nothing when
    // the folder cannot have one.
    Result<std::optional<GatheredRows>> FromMirror(ImapConnection& conn, const ImapFolderRef& folder,
                                                   const mapi::Restriction* restriction,
                                                   const std::vector<mapi::PropTag>& columns);
    // Reads these messages (sorted UIDs) into the image; the records of
    // one batch are made while the next is fetched.
    Status PutInImage(ImapConnection& conn, const ImapFolderRef& folder, const std::vector<quint32>& uids,
                      ImapFolderImage& image) const;
    // Brings the image to the folder's state: false when too much changed.
    Result<bool> Refresh(ImapConnection& conn, const ImapFolderRef& folder, ImapFolderImage& image) const;

    ImapSession& m_session;
    const QByteArray m_storeId;
    // The Message-IDs and flags of the messages the last query fetched.
    QByteArray m_queriedFolder;
    QHash<quint32, GatheredRows::Fetched> m_queried;
    // UIDs moved out of a folder (by FolderKey): a lookahead's answer may
    // still name them.
    QHash<QByteArray, QSet<quint32>> m_removed;
    // Queries told ahead and not yet handed on; how many told queries an
    // image could answer wait for each folder (by FolderKey); the images;
    // folders that cannot have one (no mod-sequences, too large). All go
    // when no image was used for a while.
    std::vector<LookaheadJob> m_told;
    QHash<QByteArray, int> m_announced;
    QHash<QByteArray, QByteArrayList> m_imageFields;  // what the told queries read
    std::map<QByteArray, std::unique_ptr<ImapFolderImage>> m_images;
    QSet<QByteArray> m_noImage;
    QTimer m_imageIdle;
    std::unique_ptr<ImapMirror> m_mirror;
    // Last, so that its thread stops before anything it reads goes.
    std::unique_ptr<ImapLookahead> m_lookahead;
};

}  // namespace mv::stores
