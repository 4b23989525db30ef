#pragma once
// Deterministic corpus of realistic mail for tests and benchmarks: the same
// seed and count always give the same messages, flags and dates.
//
// The mix: plain text, multipart/alternative, attachments, RFC 2047 subjects
// in several charsets (UTF-8, ISO-8859-1, Windows-1252, ISO-2022-JP, KOI8-R),
// delivery status reports, read receipts, calendar invitations (REQUEST,
// CANCEL, REPLY), Importance / X-Priority headers, To/Cc/Bcc lists with and
// without display names, replies and forwards, flags and keywords
// ($Forwarded, $Completed, $MailFlagBit0..2), dates spread over the three
// years before `now`.

#include "platform/mapi/MessageStore.h"

#include <QDateTime>
#include <QString>

#include <cstdint>
#include <vector>

namespace mv::corpus {

struct GeneratedMessage {
    mapi::NewMessage message;  // bytes, flags, internal (delivery) date
    QString subject;           // the decoded subject, for test expectations
    QString folder;            // "" for the INBOX, else a path such as "Sent" or "Archive/Projects"
};

// Mixed: senders, subjects and flags drawn independently of each other, the
// mail the tests and benchmarks are measured on. Demo: the same mix, but a
// share of the INBOX comes from correspondents who always write the same
// kind of message (invoices from billing, helpdesk tickets, quarterly
// reports, low-importance notes), as in a real mailbox, so that rules which
// pair a sender with subject words find mail. A seed gives the same corpus
// per profile; Mixed is what every seed gave before profiles existed.
enum class CorpusProfile { Mixed, Demo };

struct CorpusOptions {
    std::uint64_t seed = 1;
    int count = 100;
    QDateTime now = QDateTime(QDate(2026, 11, 1), QTime(12, 0), Qt::UTC);  // fixed so tests do not drift
    bool withAttachments = true;   // off for small, fast fixtures
    CorpusProfile profile = CorpusProfile::Mixed;
};

class CorpusGenerator {
public:
    static std::vector<GeneratedMessage> Generate(const CorpusOptions& options);
    // Addresses and names the generator draws from, so tests can build
    // restrictions that are known to hit.
    static QStringList SampleAddresses();
    static QStringList SampleNames();
    static QStringList SampleSubjectWords();
    // The mailbox owner: the sender of everything in Sent and the delivery
    // address of the INBOX mail.
    static QString OwnerAddress();
    // Every folder the generator may put a message in ("" is the INBOX).
    static QStringList Folders();
};

}  // namespace mv::corpus
