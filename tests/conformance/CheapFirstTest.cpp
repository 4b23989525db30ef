// Cheap terms first changes how much a store reads, never the answer: every
// case of the hand-written table, reordered, returns the same messages.

#include "HandWrittenSet.h"

#include "platform/mapi/RestrictionEvaluator.h"
#include "platform/mapi/RestrictionOrder.h"
#include "platform/stores/memory/MemoryStore.h"

#include <gtest/gtest.h>

namespace mv::conformance {
namespace {

using namespace mv::mapi;

QStringList SubjectsOf(stores::MemoryStore& store, const Restriction& r)
{
    auto rows = store.Query(store.InboxId(), &r, {PR_SUBJECT});
    EXPECT_TRUE(rows.ok());
    QStringList out;
    if (rows)
        for (const Row& row : *rows) out << row[0].toString();
    out.sort();
    return out;
}

TEST(CheapFirst, EveryCaseAnswersAsWritten)
{
    stores::MemoryStore store(stores::MemoryStoreOptions{QStringLiteral("Order"), {}, {}});
    for (const NewMessage& m : HandWrittenMessages()) ASSERT_TRUE(store.Append(store.InboxId(), m).ok());
    for (const NamedCase& c : RestrictionCases()) {
        SCOPED_TRACE(c.name);
        const Restriction reordered = RestrictionOrder::CheapFirst(c.restriction);
        EXPECT_EQ(RestrictionEvaluator::CheckSupported(reordered).ok(), RestrictionEvaluator::CheckSupported(c.restriction).ok());
        EXPECT_EQ(SubjectsOf(store, reordered), SubjectsOf(store, c.restriction));
    }
}

TEST(CheapFirst, BodyLastRecipientsBeforeItFlagsFirst)
{
    const Restriction written = Restriction::And({
        Restriction::Content(PR_BODY, QStringLiteral("invoice")),
        Restriction::Sub(PR_MESSAGE_RECIPIENTS, Restriction::Content(PR_EMAIL_ADDRESS, QStringLiteral("bob"))),
        Restriction::Or({Restriction::Content(PR_SUBJECT, QStringLiteral("a")),
                         Restriction::Bitmask(BMR_NEZ, PR_MESSAGE_FLAGS, MSGFLAG_READ)}),
        Restriction::Bitmask(BMR_EQZ, PR_MESSAGE_FLAGS, MSGFLAG_READ),
    });
    const Restriction expected = Restriction::And({
        Restriction::Bitmask(BMR_EQZ, PR_MESSAGE_FLAGS, MSGFLAG_READ),
        Restriction::Or({Restriction::Bitmask(BMR_NEZ, PR_MESSAGE_FLAGS, MSGFLAG_READ),
                         Restriction::Content(PR_SUBJECT, QStringLiteral("a"))}),
        Restriction::Sub(PR_MESSAGE_RECIPIENTS, Restriction::Content(PR_EMAIL_ADDRESS, QStringLiteral("bob"))),
        Restriction::Content(PR_BODY, QStringLiteral("invoice")),
    });
    EXPECT_EQ(RestrictionOrder::CheapFirst(written).ToString(), expected.ToString());
}

}  // namespace
}  // namespace mv::conformance
