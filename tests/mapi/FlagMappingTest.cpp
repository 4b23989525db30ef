#include "platform/stores/common/FlagMapping.h"

#include "tests/support/QtPrinters.h"

#include <gtest/gtest.h>

namespace mv::stores {
namespace {

using mapi::MessageFlags;

// System flags by their Maildir letters: D draft, F flagged, R answered, S seen, T deleted.
MessageFlags Make(QByteArrayView system, QStringList keywords = {})
{
    MessageFlags f;
    f.draft = system.contains('D');
    f.flagged = system.contains('F');
    f.answered = system.contains('R');
    f.seen = system.contains('S');
    f.deleted = system.contains('T');
    f.keywords = std::move(keywords);
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
    const struct {
        const char* name;
        MessageFlags flags;
        int messageFlags, flagStatus;
        int flagIcon, lastVerb;  // 0: absent
    } cases[] = {
        // Plain flags, red, orange, blue, purple, completed, replied and forwarded
        // run through every store in tests/conformance.
        {"Draft", Make("D"), mapi::MSGFLAG_UNSENT, 0, 0, 0},
        {"Yellow", Make("F", {"$MailFlagBit1"}), 0, 2, 4, 0},
        {"Green", Make("F", {"$MailFlagBit0", "$MailFlagBit1"}), 0, 2, 3, 0},
        {"GreyHasNoMapiColour", Make("F", {"$MailFlagBit1", "$MailFlagBit2"}), 0, 2, 0, 0},
        {"ColourWithoutFlagIsNoIcon", Make("", {"$MailFlagBit2"}), 0, 0, 0, 0},
        {"KeywordsIgnoreCase", Make("F", {"$mailflagbit2"}), 0, 2, 5, 0},
        {"CompletedLowerCase", Make("", {"$completed"}), 0, 1, 0, 0},
        {"FlaggedBeatsCompleted", Make("F", {"$Completed"}), 0, 2, 6, 0},
        {"AnsweredAndForwardedIsReply", Make("R", {"$Forwarded"}), 0, 0, 0, 102},
        {"OtherKeywordsChangeNothing", Make("", {"$Junk", "Work"}), 0, 0, 0, 0},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        // Reapplied over a record that had everything: stale properties go, other bits stay.
        mapi::PropertyMap props{{mapi::PR_MESSAGE_FLAGS, mapi::MSGFLAG_HASATTACH}};
        FlagMapping::ApplyFlags(Make("SFR", {"$MailFlagBit2"}), props);
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
        {"ClearCompleted", Make("S", {"Work", "$COMPLETED"}), 0, false, {"Work"}},
        {"ClearColouredFlag", Make("F", {"$MailFlagBit0", "$Forwarded"}), 0, false, {"$Forwarded"}},
        {"CompleteTwiceKeepsOneKeyword", Make("", {"$Completed"}), 1, false, {"$Completed"}},
        {"FlagKeepsColour", Make("F", {"$MailFlagBit2"}), 2, true, {"$MailFlagBit2"}},
        {"OtherValueChangesNothing", Make("F", {"$Completed"}), 7, true, {"$Completed"}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        const MessageFlags after = FlagMapping::WithFlagStatus(c.before, c.status);
        EXPECT_EQ(after.flagged, c.flagged);
        EXPECT_EQ(after.keywords, c.keywords);
        EXPECT_EQ(after.seen, c.before.seen);
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
        {"DFRST", {}, Make("DFRST")},
        {"PS", {}, Make("S", {"$Forwarded"})},               // passed is forwarded
        {"2,S", {}, Make("S")},                              // a leading version is skipped
        {"Pd", kDovecotKeywords, Make("", {"$Forwarded"})},  // forwarded both ways, once
        {"Fz", kDovecotKeywords, Make("F")},                 // a letter beyond the list
        {"XS,1", {}, Make("S")},                             // unknown letters
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
        {"AsciiOrder", Make("SRFDT", {"$Forwarded"}), {}, "DFPRST", {}},
        {"NewKeywordAppended", Make("", {"$MailFlagBit2"}), {"$Completed"}, "b", {"$Completed", "$MailFlagBit2"}},
        {"DuplicateKeywordOneLetter", Make("", {"Work", "work"}), {}, "a", {"Work"}},
        {"ListFullDropsNewKeyword", Make("S", {"k3", "New"}), twentySix, "Sd", twentySix},
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
