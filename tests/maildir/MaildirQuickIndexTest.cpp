// The compact per-folder index seen from the store: a later process whose
// directories did not change parses nothing and reads no body it has
// answered before; any change of the folder, or of a message's identity,
// is seen.

#include "MaildirFixture.h"

#include "platform/stores/common/MimeProperties.h"

#include <atomic>
#include <ctime>

namespace mv::stores::maildir::test {
namespace {

class MaildirQuickIndexTest : public MaildirFixture {
protected:
    void SetUp() override
    {
        MaildirFixture::SetUp();
        Put({}, QStringLiteral("cur/1000.a.host:2,S"), Mail(QStringLiteral("invoice March"), {}, {}, "Please pay the invoice.\n"));
        Put({}, QStringLiteral("cur/1001.b.host:2,"), Mail(QStringLiteral("invoice April"), {}, {}, "Nothing to pay.\n"));
        Put({}, QStringLiteral("cur/1002.c.host:2,F"), Mail(QStringLiteral("lunch"), {}, {}, "An invoice for lunch.\n"));
        Age();
    }

    // Directory times a minute old, as in a mailbox nobody is writing to
    // (recent ones are not trusted), and never the same twice.
    void Age()
    {
        ++m_ages;
        for (const char* sub : {"/cur", "/new"}) SetMtime(root + QLatin1String(sub), std::time(nullptr) - 60 - m_ages);
    }

    // A store of a new process that counts the files it parses.
    std::unique_ptr<MaildirStore> Fresh()
    {
        auto store = Open();
        parses = 0;
        store->SetHeaderParser([this](const QString& path) -> Result<std::shared_ptr<const HeaderProps>> {
            ++parses;
            auto record = MimeProperties::FromFile(path, {});
            if (!record) return record.error();
            auto header = std::make_shared<HeaderProps>();
            header->props.assign(record->props.constKeyValueBegin(), record->props.constKeyValueEnd());
            for (const PropertyMap& row : record->recipients)
                header->recipients.emplace_back(row.constKeyValueBegin(), row.constKeyValueEnd());
            return std::shared_ptr<const HeaderProps>(std::move(header));
        });
        return store;
    }

    const Restriction bodyAndSubject = Restriction::And(
        {Restriction::Content(PR_BODY, QStringLiteral("invoice")), Restriction::Content(PR_SUBJECT, QStringLiteral("march"))});
    const Restriction body = Restriction::Content(PR_BODY, QStringLiteral("invoice"));
    std::atomic<int> parses = 0;
    int m_ages = 0;
};

TEST_F(MaildirQuickIndexTest, UnchangedFolderIsAnsweredFromTheIndexAlone)
{
    {
        auto first = Open();
        // The body term is written first; the subject term is tried first.
        EXPECT_EQ(Subjects(*first, kInbox, &bodyAndSubject), QStringList{QStringLiteral("invoice March")});
        EXPECT_EQ(first->lastBodyReads(), 1);
        EXPECT_EQ(Subjects(*first, kInbox, &body), (QStringList{QStringLiteral("invoice March"), QStringLiteral("lunch")}));
    }
    auto second = Fresh();
    EXPECT_EQ(Subjects(*second, kInbox, &body), (QStringList{QStringLiteral("invoice March"), QStringLiteral("lunch")}));
    EXPECT_EQ(second->lastBodyReads(), 0);
    EXPECT_TRUE(second->lastScan().skipped);
    const Restriction flagged = Restriction::Property(RELOP_EQ, PR_FLAG_STATUS, 2);
    EXPECT_EQ(Subjects(*second, kInbox, &flagged), QStringList{QStringLiteral("lunch")});
    EXPECT_EQ(Subjects(*second, kInbox), (QStringList{QStringLiteral("invoice April"), QStringLiteral("invoice March"),
                                                      QStringLiteral("lunch")}));
    EXPECT_EQ(parses, 0);
}

TEST_F(MaildirQuickIndexTest, ChangesAreSeenAndOnlyChangedBodiesReadAgain)
{
    struct Change {
        const char* name;
        std::function<void(MaildirQuickIndexTest&)> apply;
        QStringList bodyMatches;
        int bodyReads;
    };
    const std::vector<Change> changes = {
        {"a delivery", [](auto& t) { t.Put({}, QStringLiteral("new/1003.d.host"), Mail(QStringLiteral("new"), {}, {}, "invoice\n")); },
         {QStringLiteral("invoice March"), QStringLiteral("lunch"), QStringLiteral("new")}, 1},
        {"a message replaced under its name", [](auto& t) {
             const QString tmp = t.root + QStringLiteral("/tmp/x");
             WriteFile(tmp, Mail(QStringLiteral("lunch"), {}, {}, "No bill this time, longer text.\n"));
             ASSERT_EQ(::rename(QFile::encodeName(tmp).constData(),
                                QFile::encodeName(t.root + QStringLiteral("/cur/1002.c.host:2,F")).constData()), 0);
         }, {QStringLiteral("invoice March")}, 1},
        {"a flag changed by another client", [](auto& t) {
             ASSERT_TRUE(QFile::rename(t.root + QStringLiteral("/cur/1001.b.host:2,"), t.root + QStringLiteral("/cur/1001.b.host:2,S")));
         }, {QStringLiteral("invoice March"), QStringLiteral("lunch")}, 0},
        {"a message removed", [](auto& t) { ASSERT_TRUE(QFile::remove(t.root + QStringLiteral("/cur/1000.a.host:2,S"))); },
         {QStringLiteral("lunch")}, 0},
        {"the index file garbled", [](auto& t) {
             auto store = t.Open();
             for (const QString& f : QDir(store->quickIndexDir()).entryList(QDir::Files)) {
                 QFile file(store->quickIndexDir() + QLatin1Char('/') + f);
                 ASSERT_TRUE(file.open(QIODevice::ReadWrite));
                 file.seek(70);
                 file.write("garbage");
             }
         }, {QStringLiteral("invoice March"), QStringLiteral("lunch")}, 3},
    };
    for (const Change& c : changes) {
        SCOPED_TRACE(c.name);
        QDir(m_tmp.path() + QStringLiteral("/cache")).removeRecursively();
        SetUp();
        for (const char* f : {"cur/1003.d.host:2,", "new/1003.d.host"}) QFile::remove(root + QLatin1Char('/') + QLatin1String(f));
        QFile::rename(root + QStringLiteral("/cur/1001.b.host:2,S"), root + QStringLiteral("/cur/1001.b.host:2,"));
        Age();
        (void)Subjects(*Open(), kInbox, &body);  // answers remembered
        c.apply(*this);
        Age();
        auto later = Fresh();
        QStringList expected = c.bodyMatches;
        expected.sort();
        EXPECT_EQ(Subjects(*later, kInbox, &body), expected);
        EXPECT_EQ(later->lastBodyReads(), c.bodyReads);
        // And the process after it answers from the index again.
        later.reset();
        auto next = Fresh();
        EXPECT_EQ(Subjects(*next, kInbox, &body), expected);
        EXPECT_EQ(next->lastBodyReads(), 0);
        EXPECT_EQ(parses, 0);
    }
}

}  // namespace
}  // namespace mv::stores::maildir::test
