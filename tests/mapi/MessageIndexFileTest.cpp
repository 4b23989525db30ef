// The compact message index: what is put comes back after a reopen, a
// damaged file is never trusted, body answers live only as long as the
// message's identity.

#include "platform/stores/common/MessageIndexFile.h"
#include "platform/stores/common/MessageIndexSource.h"
#include "platform/mapi/RestrictionEvaluator.h"

#include "tests/support/QtPrinters.h"

#include <QDateTime>
#include <QFile>
#include <QTemporaryDir>

#include <gtest/gtest.h>

namespace mv::stores {
namespace {

using namespace mv::mapi;

constexpr PropTag kHasAttach = 0x0E1B000B;    // a boolean
constexpr PropTag kSubmitTime = 0x00390040;   // an instant

class MessageIndexFileTest : public ::testing::Test {
protected:
    QString Path() const { return m_tmp.path() + QStringLiteral("/sub/INBOX.mvix"); }

    static MessageIndexFile::Record Message(int n, qint64 size = 100, qint64 stamp = 7)
    {
        MessageIndexFile::Record r;
        r.key = "m" + QByteArray::number(n);
        r.aux = "cur/m" + QByteArray::number(n) + ":2,S";
        r.size = size;
        r.stamp = stamp;
        r.dateMs = 1700000000000LL + n;
        r.flags = quint32(n);
        r.props = {{PR_SUBJECT, QStringLiteral("Grüße Nummer %1").arg(n)},
                   {PR_IMPORTANCE, 1 + n % 2},
                   {kHasAttach, n % 2 == 0},
                   {PR_SENT_REPRESENTING_EMAIL_ADDRESS, QStringLiteral("same@example.com")},
                   {PR_INTERNET_MESSAGE_ID, QByteArray("<id") + QByteArray::number(n) + ">"},
                   {kSubmitTime, QDateTime::fromMSecsSinceEpoch(1600000000123LL, Qt::UTC)}};
        r.recipients = {{{PR_EMAIL_ADDRESS, QStringLiteral("bob@example.org")}, {PR_RECIPIENT_TYPE, 1}},
                        {{PR_DISPLAY_NAME, QStringLiteral("Carol")}, {PR_RECIPIENT_TYPE, 2}}};
        return r;
    }

    std::unique_ptr<MessageIndexFile> Written(int count)
    {
        auto index = MessageIndexFile::Open(Path()).value();
        index->SetValidity("v1");
        for (int n = count; n >= 1; --n) index->Put(Message(n));  // out of order: the index sorts
        EXPECT_TRUE(index->Commit().ok());
        return MessageIndexFile::Open(Path()).value();
    }

    QTemporaryDir m_tmp;
};

TEST_F(MessageIndexFileTest, RecordsComeBackInKeyOrderAndAreEvaluatedInPlace)
{
    auto index = Written(12);
    ASSERT_FALSE(index->rebuilt());
    EXPECT_EQ(index->validity(), QByteArray("v1"));
    ASSERT_EQ(index->count(), 12);
    for (qsizetype i = 1; i < index->count(); ++i) EXPECT_LT(index->at(i - 1).key(), index->at(i).key());
    for (int n : {1, 7, 12}) {
        const MessageIndexFile::Record expected = Message(n);
        const MessageIndexFile::Record back = index->find(expected.key).ToRecord();
        EXPECT_EQ(back.aux, expected.aux);
        EXPECT_EQ(back.dateMs, expected.dateMs);
        EXPECT_EQ(back.flags, expected.flags);
        EXPECT_EQ(back.props, expected.props);
        EXPECT_EQ(back.recipients, expected.recipients);
    }
    EXPECT_TRUE(index->find("m99").isNull());
    MessageIndexSource source(index->find("m7"));
    EXPECT_TRUE(RestrictionEvaluator::Matches(Restriction::Content(PR_SUBJECT, QStringLiteral("GRÜßE NUMMER 7")), source));
    EXPECT_FALSE(RestrictionEvaluator::Matches(Restriction::Content(PR_SUBJECT, QStringLiteral("Nummer 8")), source));
    EXPECT_TRUE(RestrictionEvaluator::Matches(
        Restriction::Sub(PR_MESSAGE_RECIPIENTS, Restriction::And({Restriction::Content(PR_DISPLAY_NAME, QStringLiteral("carol")),
                                                                  Restriction::Property(RELOP_EQ, PR_RECIPIENT_TYPE, 2)})),
        source));
    EXPECT_FALSE(RestrictionEvaluator::Matches(Restriction::Exist(PR_DISPLAY_CC), source));
}

TEST_F(MessageIndexFileTest, DamagedFilesAreRebuiltNeverTrusted)
{
    const qint64 size = Written(20)->fileSize();
    QFile f(Path());
    ASSERT_TRUE(f.open(QIODevice::ReadOnly));
    const QByteArray good = f.readAll();
    f.close();
    ASSERT_EQ(good.size(), size);
    struct Damage {
        const char* name;
        QByteArray bytes;
    };
    QByteArray flipped = good, flippedLate = good, wrongVersion = good;
    flipped[100] = char(flipped[100] ^ 0x10);
    flippedLate[good.size() - 20] = char(flippedLate[good.size() - 20] ^ 1);
    wrongVersion[8] = 9;
    const std::vector<Damage> damages = {
        {"empty", {}},
        {"truncated to the header", good.left(40)},
        {"truncated by one byte", good.left(good.size() - 1)},
        {"a byte flipped in the records", flipped},
        {"a byte flipped in the pool", flippedLate},
        {"another version", wrongVersion},
        {"foreign bytes", QByteArray(4096, 'x')},
    };
    for (const Damage& d : damages) {
        SCOPED_TRACE(d.name);
        QFile out(Path());
        ASSERT_TRUE(out.open(QIODevice::WriteOnly | QIODevice::Truncate));
        out.write(d.bytes);
        out.close();
        auto index = MessageIndexFile::Open(Path());
        ASSERT_TRUE(index.ok());
        EXPECT_TRUE((*index)->rebuilt());
        EXPECT_EQ((*index)->count(), 0);
        EXPECT_TRUE((*index)->validity().isEmpty());
        // And it is written anew.
        (*index)->Put(Message(1));
        ASSERT_TRUE((*index)->Commit().ok());
        EXPECT_EQ(MessageIndexFile::Open(Path()).value()->count(), 1);
    }
}

TEST_F(MessageIndexFileTest, BodyAnswersLastAsLongAsSizeAndStamp)
{
    const quint64 invoice = MessageIndexFile::BodyTermKey(Restriction::Content(PR_BODY, QStringLiteral("Invoice")));
    EXPECT_EQ(invoice, MessageIndexFile::BodyTermKey(Restriction::Content(PR_BODY, QStringLiteral("INVOICE"))));
    EXPECT_NE(invoice, MessageIndexFile::BodyTermKey(
                           Restriction::Content(PR_BODY, QStringLiteral("Invoice"), FL_SUBSTRING)));
    struct Change {
        const char* name;
        qint64 size, stamp;
        bool kept;
    };
    for (const Change& c : {Change{"flags only (same size and stamp)", 100, 7, true},
                            Change{"size changed", 101, 7, false}, Change{"stamp changed", 100, 8, false}}) {
        SCOPED_TRACE(c.name);
        {
            auto index = Written(3);
            index->RememberBody("m2", invoice, true);
            index->RememberBody("m3", invoice, false);
            EXPECT_EQ(index->find("m2").BodyAnswer(invoice), true);  // seen before the commit
            ASSERT_TRUE(index->Commit().ok());
        }
        auto index = MessageIndexFile::Open(Path()).value();
        EXPECT_EQ(index->find("m3").BodyAnswer(invoice), false);
        EXPECT_EQ(index->find("m1").BodyAnswer(invoice), std::nullopt);
        MessageIndexFile::Record changed = index->find("m2").ToRecord();
        changed.size = c.size;
        changed.stamp = c.stamp;
        changed.aux = "cur/m2:2,FS";
        index->Put(changed);
        ASSERT_TRUE(index->Commit().ok());
        const auto reopened = MessageIndexFile::Open(Path()).value();
        EXPECT_EQ(reopened->find("m2").BodyAnswer(invoice), c.kept ? std::optional<bool>(true) : std::nullopt);
        EXPECT_EQ(reopened->find("m3").BodyAnswer(invoice), false);
    }
}

TEST_F(MessageIndexFileTest, RemoveClearAndRewrite)
{
    const quint64 term = 42;
    auto index = Written(5);
    index->RememberBody("m4", term, true);
    index->Remove("m2");
    EXPECT_EQ(index->count(), 4);
    ASSERT_TRUE(index->Commit().ok());
    EXPECT_TRUE(index->find("m2").isNull());
    ASSERT_TRUE(index->Rewrite("v", 3, [](auto i) { return Message(4 + int(i), i == 1 ? 9 : 100); }).ok());
    index->RememberBody("m5", term, false);  // m5's size changed: only this answer is its own
    ASSERT_TRUE(index->Commit().ok());
    auto reopened = MessageIndexFile::Open(Path()).value();
    ASSERT_EQ(reopened->count(), 3);
    EXPECT_EQ(reopened->find("m4").BodyAnswer(term), true);
    EXPECT_EQ(reopened->find("m5").BodyAnswer(term), false);
    reopened->Clear();
    reopened->SetValidity("v2");
    ASSERT_TRUE(reopened->Commit().ok());
    EXPECT_EQ(MessageIndexFile::Open(Path()).value()->count(), 0);
    EXPECT_EQ(MessageIndexFile::Open(Path()).value()->validity(), QByteArray("v2"));
}

}  // namespace
}  // namespace mv::stores
