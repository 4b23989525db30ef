#pragma once
// Shared pieces of the IMAP tests: a Dovecot fixture with a store on it and
// a message builder. One server per set of options serves a process's tests;
// each test starts on an emptied mailbox.

#include "platform/logging/MemoryLogger.h"
#include "platform/stores/imap/ImapIds.h"
#include "platform/stores/imap/ImapStore.h"
#include "tests/support/QtPrinters.h"
#include "tests/support/dovecot/DovecotServer.h"

#include <QDateTime>

#include <gtest/gtest.h>

#include <memory>

namespace mv::test {

struct MailDef {
    QString from = QStringLiteral("Alice Archer <alice@example.org>");
    QString to = QStringLiteral("Bob Baker <bob@example.com>");
    QString subject = QStringLiteral("Quarterly budget");
    QString body = QStringLiteral("Numbers attached.");
    QStringList extraHeaders;
    mapi::MessageFlags flags;
    QDateTime date = QDateTime(QDate(2026, 10, 1), QTime(9, 30), Qt::UTC);
};

inline QString S(const char* s) { return QString::fromUtf8(s); }
QByteArray BuildMail(const MailDef& def, int serial);
MailDef Mail(const QString& subject, bool seen = false);
// The UID of a message identifier, as IMAP commands write it.
inline QByteArray Uid(const QByteArray& id) { return QByteArray::number(stores::ImapIds::ParseMessage(id)->uid); }

// Another client: logs in on `port`, sends each command (tagged for it) and
// returns everything the server said. Commands use plain IMAP syntax.
QByteArray OtherClient(quint16 port, const QByteArrayList& commands);

// The running server for `options` that a process's tests share: started on
// first use, stopped at the end of the run; null when it cannot start.
DovecotServer* SharedDovecot(const DovecotOptions& options, QString* error = nullptr);

class DovecotStoreTest : public ::testing::Test {
protected:
    void SetUp() override;
    virtual DovecotOptions Options() const { return {}; }
    stores::ImapSettings Settings(quint16 port = 0) const;
    std::unique_ptr<stores::ImapStore> MakeStore(quint16 port = 0) const
    {
        return std::make_unique<stores::ImapStore>(Settings(port));
    }
    QByteArray Folder(const QByteArray& mailbox);  // creates it when missing
    QByteArray Add(const QByteArray& folderId, const MailDef& def);
    // Subjects of a folder's messages, sorted (column PR_SUBJECT of a query
    // asking `columns`, of `other` when given).
    QStringList Subjects(const QByteArray& folderId, const mapi::Restriction* restriction = nullptr,
                         const std::vector<mapi::PropTag>& columns = {mapi::PR_SUBJECT}, stores::ImapStore* other = nullptr);

    DovecotServer* server = nullptr;  // shared, see SharedDovecot()
    std::unique_ptr<stores::ImapStore> store;
    QByteArray inbox;
    int serial = 0;
};

}  // namespace mv::test
