#include "platform/stores/common/FlagMapping.h"

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

struct PropsCase {
    const char* name;
    MessageFlags flags;
    int messageFlags;
    int flagStatus;
    int flagIcon;  // 0: absent
    int lastVerb;  // 0: absent
};
void PrintTo(const PropsCase& c, std::ostream* os) { *os << c.name; }

class FlagsToProperties : public ::testing::TestWithParam<PropsCase> {};

TEST_P(FlagsToProperties, Apply)
{
    const PropsCase& c = GetParam();
    mapi::PropertyMap props;
    FlagMapping::ApplyFlags(c.flags, props);
    EXPECT_EQ(props.value(mapi::PR_MESSAGE_FLAGS), QVariant(c.messageFlags));
    ASSERT_TRUE(props.contains(mapi::PR_FLAG_STATUS)) << "flag status must always be present";
    EXPECT_EQ(props.value(mapi::PR_FLAG_STATUS), QVariant(c.flagStatus));
    EXPECT_EQ(props.contains(mapi::PR_FLAG_ICON), c.flagIcon != 0);
    if (c.flagIcon) {
        EXPECT_EQ(props.value(mapi::PR_FLAG_ICON), QVariant(c.flagIcon));
    }
    EXPECT_EQ(props.contains(mapi::PR_LAST_VERB_EXECUTED), c.lastVerb != 0);
    if (c.lastVerb) {
        EXPECT_EQ(props.value(mapi::PR_LAST_VERB_EXECUTED), QVariant(c.lastVerb));
    }
}

INSTANTIATE_TEST_SUITE_P(
    Table, FlagsToProperties,
    ::testing::Values(
        PropsCase{"Nothing", Make({}), 0, 0, 0, 0},
        PropsCase{"Seen", Make({"\\Seen"}), mapi::MSGFLAG_READ, 0, 0, 0},
        PropsCase{"Draft", Make({"\\Draft"}), mapi::MSGFLAG_UNSENT, 0, 0, 0},
        PropsCase{"FlaggedPlainIsRed", Make({"\\Flagged"}), 0, 2, 6, 0},
        PropsCase{"Orange", Make({"\\Flagged"}, {"$MailFlagBit0"}), 0, 2, 2, 0},
        PropsCase{"Yellow", Make({"\\Flagged"}, {"$MailFlagBit1"}), 0, 2, 4, 0},
        PropsCase{"Green", Make({"\\Flagged"}, {"$MailFlagBit0", "$MailFlagBit1"}), 0, 2, 3, 0},
        PropsCase{"Blue", Make({"\\Flagged"}, {"$MailFlagBit2"}), 0, 2, 5, 0},
        PropsCase{"Purple", Make({"\\Flagged"}, {"$MailFlagBit2", "$MailFlagBit0"}), 0, 2, 1, 0},
        PropsCase{"GreyHasNoMapiColour", Make({"\\Flagged"}, {"$MailFlagBit1", "$MailFlagBit2"}), 0, 2, 0, 0},
        PropsCase{"AllBitsUnassigned", Make({"\\Flagged"}, {"$MailFlagBit0", "$MailFlagBit1", "$MailFlagBit2"}), 0, 2, 0, 0},
        PropsCase{"ColourWithoutFlagIsNoIcon", Make({}, {"$MailFlagBit2"}), 0, 0, 0, 0},
        PropsCase{"KeywordsIgnoreCase", Make({"\\Flagged"}, {"$mailflagbit2"}), 0, 2, 5, 0},
        PropsCase{"Completed", Make({"\\Seen"}, {"$Completed"}), mapi::MSGFLAG_READ, 1, 0, 0},
        PropsCase{"CompletedLowerCase", Make({}, {"$completed"}), 0, 1, 0, 0},
        PropsCase{"FlaggedBeatsCompleted", Make({"\\Flagged"}, {"$Completed"}), 0, 2, 6, 0},
        PropsCase{"Answered", Make({"\\Answered"}), 0, 0, 0, 102},
        PropsCase{"Forwarded", Make({}, {"$Forwarded"}), 0, 0, 0, 104},
        PropsCase{"AnsweredAndForwardedIsReply", Make({"\\Answered"}, {"$Forwarded"}), 0, 0, 0, 102},
        PropsCase{"OtherKeywordsChangeNothing", Make({}, {"$Junk", "Work"}), 0, 0, 0, 0}),
    [](const auto& info) { return std::string(info.param.name); });

TEST(FlagMapping, ReapplyingKeepsOtherBitsAndDropsStaleProperties)
{
    mapi::PropertyMap props{{mapi::PR_MESSAGE_FLAGS, mapi::MSGFLAG_HASATTACH}};
    FlagMapping::ApplyFlags(Make({"\\Seen", "\\Flagged", "\\Answered"}, {"$MailFlagBit2"}), props);
    EXPECT_EQ(props.value(mapi::PR_MESSAGE_FLAGS).toInt(), mapi::MSGFLAG_HASATTACH | mapi::MSGFLAG_READ);
    FlagMapping::ApplyFlags(Make({}), props);
    EXPECT_EQ(props.value(mapi::PR_MESSAGE_FLAGS).toInt(), mapi::MSGFLAG_HASATTACH);
    EXPECT_EQ(props.value(mapi::PR_FLAG_STATUS).toInt(), 0);
    EXPECT_FALSE(props.contains(mapi::PR_FLAG_ICON));
    EXPECT_FALSE(props.contains(mapi::PR_LAST_VERB_EXECUTED));
}

struct StatusCase {
    const char* name;
    MessageFlags before;
    int status;
    bool flagged;
    QStringList keywords;
};
void PrintTo(const StatusCase& c, std::ostream* os) { *os << c.name; }

class FlagStatusChange : public ::testing::TestWithParam<StatusCase> {};

TEST_P(FlagStatusChange, WithFlagStatus)
{
    const StatusCase& c = GetParam();
    const MessageFlags after = FlagMapping::WithFlagStatus(c.before, c.status);
    EXPECT_EQ(after.flagged, c.flagged);
    EXPECT_EQ(after.keywords, c.keywords);
    EXPECT_EQ(after.seen, c.before.seen) << "only the follow-up flag may change";
    mapi::PropertyMap props;
    FlagMapping::ApplyFlags(after, props);
    if (c.status >= 0 && c.status <= 2) {
        EXPECT_EQ(props.value(mapi::PR_FLAG_STATUS).toInt(), c.status);
    }
}

INSTANTIATE_TEST_SUITE_P(
    Table, FlagStatusChange,
    ::testing::Values(
        StatusCase{"ClearCompleted", Make({"\\Seen"}, {"Work", "$COMPLETED"}), 0, false, {"Work"}},
        StatusCase{"ClearColouredFlag", Make({"\\Flagged"}, {"$MailFlagBit0", "$Forwarded"}), 0, false, {"$Forwarded"}},
        StatusCase{"CompleteFlagged", Make({"\\Flagged"}, {"$MailFlagBit2"}), 1, false, {"$Completed"}},
        StatusCase{"CompleteTwiceKeepsOneKeyword", Make({}, {"$Completed"}), 1, false, {"$Completed"}},
        StatusCase{"FlagCompleted", Make({}, {"$Completed", "Work"}), 2, true, {"Work"}},
        StatusCase{"FlagKeepsColour", Make({"\\Flagged"}, {"$MailFlagBit2"}), 2, true, {"$MailFlagBit2"}},
        StatusCase{"OtherValueChangesNothing", Make({"\\Flagged"}, {"$Completed"}), 7, true, {"$Completed"}}),
    [](const auto& info) { return std::string(info.param.name); });

struct MaildirCase {
    const char* name;
    QString info;
    QStringList keywordNames;
    MessageFlags flags;
};
void PrintTo(const MaildirCase& c, std::ostream* os) { *os << c.name; }

bool SameFlags(const MessageFlags& a, const MessageFlags& b)
{
    // Keywords compare as IMAP does: without case, as a set.
    const auto normal = [](QStringList k) {
        for (QString& s : k) s = s.toLower();
        k.removeDuplicates();
        k.sort();
        return k;
    };
    const QStringList ka = normal(a.keywords), kb = normal(b.keywords);
    return a.seen == b.seen && a.answered == b.answered && a.flagged == b.flagged && a.draft == b.draft
        && a.deleted == b.deleted && ka == kb;
}

class MaildirRead : public ::testing::TestWithParam<MaildirCase> {};

TEST_P(MaildirRead, FromInfo)
{
    const MaildirCase& c = GetParam();
    EXPECT_TRUE(SameFlags(FlagMapping::FromMaildirInfo(c.info, c.keywordNames), c.flags));
}

const QStringList kDovecotKeywords = {"$Completed", "$MailFlagBit0", "Work", "$Forwarded"};

INSTANTIATE_TEST_SUITE_P(
    Table, MaildirRead,
    ::testing::Values(
        MaildirCase{"Empty", "", {}, Make({})},
        MaildirCase{"SystemLetters", "DFRST", {}, Make({"\\Draft", "\\Flagged", "\\Answered", "\\Seen", "\\Deleted"})},
        MaildirCase{"PassedIsForwarded", "PS", {}, Make({"\\Seen"}, {"$Forwarded"})},
        MaildirCase{"LeadingVersionSkipped", "2,S", {}, Make({"\\Seen"})},
        MaildirCase{"KeywordLetters", "Sac", kDovecotKeywords, Make({"\\Seen"}, {"$Completed", "Work"})},
        MaildirCase{"ForwardedBothWaysOnce", "Pd", kDovecotKeywords, Make({}, {"$Forwarded"})},
        MaildirCase{"LetterBeyondListIgnored", "Fz", kDovecotKeywords, Make({"\\Flagged"})},
        MaildirCase{"UnknownLettersIgnored", "XS,1", {}, Make({"\\Seen"})}),
    [](const auto& info) { return std::string(info.param.name); });

struct MaildirWriteCase {
    const char* name;
    MessageFlags flags;
    QStringList keywordsBefore;
    QString info;
    QStringList keywordsAfter;
};
void PrintTo(const MaildirWriteCase& c, std::ostream* os) { *os << c.name; }

class MaildirWrite : public ::testing::TestWithParam<MaildirWriteCase> {};

TEST_P(MaildirWrite, ToInfoAndBack)
{
    const MaildirWriteCase& c = GetParam();
    QStringList names = c.keywordsBefore;
    const QString info = FlagMapping::ToMaildirInfo(c.flags, names);
    EXPECT_EQ(info, c.info);
    EXPECT_EQ(names, c.keywordsAfter);
    if (c.keywordsAfter.size() < 26) {
        EXPECT_TRUE(SameFlags(FlagMapping::FromMaildirInfo(info, names), c.flags));
    }
}

QStringList TwentySixKeywords()
{
    QStringList names;
    for (int i = 0; i < 26; ++i) names << QStringLiteral("k%1").arg(i);
    return names;
}

INSTANTIATE_TEST_SUITE_P(
    Table, MaildirWrite,
    ::testing::Values(
        MaildirWriteCase{"AsciiOrder", Make({"\\Seen", "\\Answered", "\\Flagged", "\\Draft", "\\Deleted"}, {"$Forwarded"}),
                         {}, "DFPRST", {}},
        MaildirWriteCase{"KnownKeywordsSorted", Make({"\\Seen"}, {"Work", "$completed"}), kDovecotKeywords, "Sac",
                         kDovecotKeywords},
        MaildirWriteCase{"NewKeywordAppended", Make({}, {"$MailFlagBit2"}), {"$Completed"}, "b",
                         {"$Completed", "$MailFlagBit2"}},
        MaildirWriteCase{"DuplicateKeywordOneLetter", Make({}, {"Work", "work"}), {}, "a", {"Work"}},
        MaildirWriteCase{"ListFullDropsNewKeyword", Make({"\\Seen"}, {"k3", "New"}), TwentySixKeywords(), "Sd",
                         TwentySixKeywords()}),
    [](const auto& info) { return std::string(info.param.name); });

}  // namespace
}  // namespace mv::stores
