#include "platform/stores/common/FlagMapping.h"

#include "tests/support/QtPrinters.h"

#include <gtest/gtest.h>

namespace mv::stores {
namespace {

using mapi::MessageFlags;

MessageFlags Make(std::initializer_list<const char*> system, std::initializer_list<const char*> keywords = {})
{
    MessageFlags f;
    for (const char* s : system) {
        const QString name = QString::fromLatin1(s);
        if (name == QLatin1String("\\Seen")) f.seen = true;
        else if (name == QLatin1String("\\Answered")) f.answered = true;
        else if (name == QLatin1String("\\Flagged")) f.flagged = true;
        else if (name == QLatin1String("\\Draft")) f.draft = true;
        else if (name == QLatin1String("\\Deleted")) f.deleted = true;
        else ADD_FAILURE() << "unknown system flag " << s;
    }
    for (const char* k : keywords) f.keywords << QString::fromLatin1(k);
    return f;
}

// Keywords compare as IMAP does: without case, as a set.
bool SameFlags(const MessageFlags& a, const MessageFlags& b)
{
    const auto normal = [](QStringList k) {
        for (QString& s : k) s = s.toLower();
        k.removeDuplicates();
        k.sort();
        return k;
    };
    return a.seen == b.seen && a.answered == b.answered && a.flagged == b.flagged && a.draft == b.draft
        && a.deleted == b.deleted && normal(a.keywords) == normal(b.keywords);
}

TEST(FlagMapping, FlagsToProperties)
{
    constexpr int kRead = mapi::MSGFLAG_READ;
    const struct {
        const char* name;
        MessageFlags flags;
        int messageFlags, flagStatus;
        int flagIcon, lastVerb;  // 0: absent
    } cases[] = {
        {"Nothing", Make({}), 0, 0, 0, 0},
        {"Seen", Make({"\\Seen"}), kRead, 0, 0, 0},
        {"Draft", Make({"\\Draft"}), mapi::MSGFLAG_UNSENT, 0, 0, 0},
        {"FlaggedPlainIsRed", Make({"\\Flagged"}), 0, 2, 6, 0},
        {"Orange", Make({"\\Flagged"}, {"$MailFlagBit0"}), 0, 2, 2, 0},
        {"Yellow", Make({"\\Flagged"}, {"$MailFlagBit1"}), 0, 2, 4, 0},
        {"Green", Make({"\\Flagged"}, {"$MailFlagBit0", "$MailFlagBit1"}), 0, 2, 3, 0},
        {"Blue", Make({"\\Flagged"}, {"$MailFlagBit2"}), 0, 2, 5, 0},
        {"Purple", Make({"\\Flagged"}, {"$MailFlagBit2", "$MailFlagBit0"}), 0, 2, 1, 0},
        {"GreyHasNoMapiColour", Make({"\\Flagged"}, {"$MailFlagBit1", "$MailFlagBit2"}), 0, 2, 0, 0},
        {"AllBitsUnassigned", Make({"\\Flagged"}, {"$MailFlagBit0", "$MailFlagBit1", "$MailFlagBit2"}), 0, 2, 0, 0},
        {"ColourWithoutFlagIsNoIcon", Make({}, {"$MailFlagBit2"}), 0, 0, 0, 0},
        {"KeywordsIgnoreCase", Make({"\\Flagged"}, {"$mailflagbit2"}), 0, 2, 5, 0},
        {"Completed", Make({"\\Seen"}, {"$Completed"}), kRead, 1, 0, 0},
        {"CompletedLowerCase", Make({}, {"$completed"}), 0, 1, 0, 0},
        {"FlaggedBeatsCompleted", Make({"\\Flagged"}, {"$Completed"}), 0, 2, 6, 0},
        {"Answered", Make({"\\Answered"}), 0, 0, 0, 102},
        {"Forwarded", Make({}, {"$Forwarded"}), 0, 0, 0, 104},
        {"AnsweredAndForwardedIsReply", Make({"\\Answered"}, {"$Forwarded"}), 0, 0, 0, 102},
        {"OtherKeywordsChangeNothing", Make({}, {"$Junk", "Work"}), 0, 0, 0, 0},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        // Reapplied over a record that had everything: stale properties go, other bits stay.
        mapi::PropertyMap props{{mapi::PR_MESSAGE_FLAGS, mapi::MSGFLAG_HASATTACH}};
        FlagMapping::ApplyFlags(Make({"\\Seen", "\\Flagged", "\\Answered"}, {"$MailFlagBit2"}), props);
        FlagMapping::ApplyFlags(c.flags, props);
        EXPECT_EQ(props.value(mapi::PR_MESSAGE_FLAGS), QVariant(c.messageFlags | mapi::MSGFLAG_HASATTACH));
        EXPECT_EQ(props.value(mapi::PR_FLAG_STATUS), QVariant(c.flagStatus)) << "always present";
        EXPECT_EQ(props.value(mapi::PR_FLAG_ICON), c.flagIcon ? QVariant(c.flagIcon) : QVariant());
        EXPECT_EQ(props.value(mapi::PR_LAST_VERB_EXECUTED), c.lastVerb ? QVariant(c.lastVerb) : QVariant());
    }
}

TEST(FlagMapping, WithFlagStatusChangesOnlyTheFollowUpFlag)
{
    const struct {
        const char* name;
        MessageFlags before;
        int status;
        bool flagged;
        QStringList keywords;
    } cases[] = {
        {"ClearCompleted", Make({"\\Seen"}, {"Work", "$COMPLETED"}), 0, false, {"Work"}},
        {"ClearColouredFlag", Make({"\\Flagged"}, {"$MailFlagBit0", "$Forwarded"}), 0, false, {"$Forwarded"}},
        {"CompleteFlagged", Make({"\\Flagged"}, {"$MailFlagBit2"}), 1, false, {"$Completed"}},
        {"CompleteTwiceKeepsOneKeyword", Make({}, {"$Completed"}), 1, false, {"$Completed"}},
        {"FlagCompleted", Make({}, {"$Completed", "Work"}), 2, true, {"Work"}},
        {"FlagKeepsColour", Make({"\\Flagged"}, {"$MailFlagBit2"}), 2, true, {"$MailFlagBit2"}},
        {"OtherValueChangesNothing", Make({"\\Flagged"}, {"$Completed"}), 7, true, {"$Completed"}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        const MessageFlags after = FlagMapping::WithFlagStatus(c.before, c.status);
        EXPECT_EQ(after.flagged, c.flagged);
        EXPECT_EQ(after.keywords, c.keywords);
        EXPECT_EQ(after.seen, c.before.seen);
        if (c.status > 2) continue;
        mapi::PropertyMap props;
        FlagMapping::ApplyFlags(after, props);
        EXPECT_EQ(props.value(mapi::PR_FLAG_STATUS).toInt(), c.status);
    }
}

const QStringList kDovecotKeywords = {"$Completed", "$MailFlagBit0", "Work", "$Forwarded"};

TEST(FlagMapping, FromMaildirInfo)
{
    const struct {
        const char* info;
        QStringList keywordNames;
        MessageFlags flags;
    } cases[] = {
        {"", {}, Make({})},
        {"DFRST", {}, Make({"\\Draft", "\\Flagged", "\\Answered", "\\Seen", "\\Deleted"})},
        {"PS", {}, Make({"\\Seen"}, {"$Forwarded"})},  // passed is forwarded
        {"2,S", {}, Make({"\\Seen"})},                 // a leading version is skipped
        {"Sac", kDovecotKeywords, Make({"\\Seen"}, {"$Completed", "Work"})},
        {"Pd", kDovecotKeywords, Make({}, {"$Forwarded"})},  // forwarded both ways, once
        {"Fz", kDovecotKeywords, Make({"\\Flagged"})},       // a letter beyond the list
        {"XS,1", {}, Make({"\\Seen"})},                      // unknown letters
    };
    for (const auto& c : cases)
        EXPECT_TRUE(SameFlags(FlagMapping::FromMaildirInfo(c.info, c.keywordNames), c.flags)) << c.info;
}

TEST(FlagMapping, ToMaildirInfoAndBack)
{
    QStringList twentySix;
    for (int i = 0; i < 26; ++i) twentySix << QStringLiteral("k%1").arg(i);
    const struct {
        const char* name;
        MessageFlags flags;
        QStringList keywordsBefore;
        QString info;
        QStringList keywordsAfter;
    } cases[] = {
        {"AsciiOrder", Make({"\\Seen", "\\Answered", "\\Flagged", "\\Draft", "\\Deleted"}, {"$Forwarded"}), {},
         "DFPRST", {}},
        {"KnownKeywordsSorted", Make({"\\Seen"}, {"Work", "$completed"}), kDovecotKeywords, "Sac", kDovecotKeywords},
        {"NewKeywordAppended", Make({}, {"$MailFlagBit2"}), {"$Completed"}, "b", {"$Completed", "$MailFlagBit2"}},
        {"DuplicateKeywordOneLetter", Make({}, {"Work", "work"}), {}, "a", {"Work"}},
        {"ListFullDropsNewKeyword", Make({"\\Seen"}, {"k3", "New"}), twentySix, "Sd", twentySix},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        QStringList names = c.keywordsBefore;
        const QString info = FlagMapping::ToMaildirInfo(c.flags, names);
        EXPECT_EQ(info, c.info);
        EXPECT_EQ(names, c.keywordsAfter);
        if (c.keywordsAfter.size() >= 26) continue;
        EXPECT_TRUE(SameFlags(FlagMapping::FromMaildirInfo(info, names), c.flags));
    }
}

}  // namespace
}  // namespace mv::stores
