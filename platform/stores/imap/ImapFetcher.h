#pragma once
// FETCH commands for the contents table and their parsed answers.

#include "platform/mapi/MessageStore.h"

#include <QByteArray>
#include <QDateTime>
#include <QString>

#include <vector>

struct mailimap;
struct mailimap_body;

namespace mv::stores {

struct FetchedMessage {
    quint32 uid = 0;
    mapi::MessageFlags flags;
    QDateTime internalDate;  // UTC
    quint32 size = 0;
    quint64 modSeq = 0;      // when the server sent MODSEQ
    QByteArray header;       // the fetched header fields
    QByteArray content;      // the whole message or one part, when fetched
    QString messageClass;    // from the structure; empty when not fetched
    QByteArray calendarPart; // a text/calendar part without a method parameter: read its METHOD line
};

class ImapFetcher {
public:
    // "UID FETCH <set> (UID FLAGS INTERNALDATE RFC822.SIZE BODY.PEEK[HEADER.FIELDS (<fields>)])".
    static QByteArray HeaderFetch(const QByteArray& uidSet, const QByteArray& fields);
    // "UID FETCH <set> (UID BODYSTRUCTURE)".
    static QByteArray StructureFetch(const QByteArray& uidSet);
    // The whole message, or one part ("2.1") with its MIME header.
    static QByteArray ContentFetch(const QByteArray& uidSet, const QByteArray& part = {});
    // "1:3,7" for {1,2,3,7}; sorted and de-duplicated.
    static QByteArray UidSet(std::vector<quint32> uids);
    // The FETCH answers of the last command, in the server's order.
    static std::vector<FetchedMessage> Parse(mailimap* session);
    // Message class from BODYSTRUCTURE: reports and calendar messages.
    static QString ClassFromStructure(const mailimap_body* body, QByteArray* calendarPart);
    static QString ClassFromCalendar(const QByteArray& calendarText);
    static QDateTime ToUtc(int day, int month, int year, int hour, int min, int sec, int zone);
};

}  // namespace mv::stores
