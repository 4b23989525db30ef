#include "FlagMapping.h"

#include <algorithm>
#include <array>

namespace mv::stores {
namespace {

using mapi::MessageFlags;

const QString kCompleted = QStringLiteral("$Completed");
const QString kForwarded = QStringLiteral("$Forwarded");
const std::array<QString, 3> kColourBits = {
    QStringLiteral("$MailFlagBit0"), QStringLiteral("$MailFlagBit1"), QStringLiteral("$MailFlagBit2")};

// The colour keywords form a 3-bit number, bit 0 lowest: 0 red, 1 orange,
// 2 yellow, 3 green, 4 blue, 5 purple, 6 grey. MAPI has no grey (and 7 is
// unassigned), so those carry no icon.
constexpr std::array<int, 8> kIconForColourBits = {6, 2, 4, 3, 5, 1, 0, 0};

struct ReadBit {
    bool MessageFlags::*flag;
    int bit;
};
constexpr std::array kMessageFlagBits = {
    ReadBit{&MessageFlags::seen, mapi::MSGFLAG_READ},
    ReadBit{&MessageFlags::draft, mapi::MSGFLAG_UNSENT},
};

// First match wins: with both set we cannot know which came last, and the
// reply is the one the system flag records on every server.
struct Verb {
    bool MessageFlags::*flag;  // or null: the keyword decides
    const QString* keyword;
    int verb;
};
const std::array kVerbs = {
    Verb{&MessageFlags::answered, nullptr, mapi::EXCHIVERB_REPLYTOSENDER},
    Verb{nullptr, &kForwarded, mapi::EXCHIVERB_FORWARD},
};

// Maildir's upper-case letters in the ASCII order the Maildir convention asks for.
struct MaildirLetter {
    char letter;
    bool MessageFlags::*flag;  // or null: the keyword stands for the letter
    const QString* keyword;
};
const std::array kMaildirLetters = {
    MaildirLetter{'D', &MessageFlags::draft, nullptr},
    MaildirLetter{'F', &MessageFlags::flagged, nullptr},
    MaildirLetter{'P', nullptr, &kForwarded},
    MaildirLetter{'R', &MessageFlags::answered, nullptr},
    MaildirLetter{'S', &MessageFlags::seen, nullptr},
    MaildirLetter{'T', &MessageFlags::deleted, nullptr},
};

constexpr int kMaxKeywordLetters = 26;

void RemoveKeyword(MessageFlags& flags, const QString& keyword)
{
    flags.keywords.removeIf([&](const QString& k) { return k.compare(keyword, Qt::CaseInsensitive) == 0; });
}

void AddKeyword(MessageFlags& flags, const QString& keyword)
{
    if (!FlagMapping::HasKeyword(flags, keyword)) flags.keywords.append(keyword);
}

bool IsLetterKeyword(const QString& keyword)
{
    return std::any_of(kMaildirLetters.begin(), kMaildirLetters.end(), [&](const MaildirLetter& l) {
        return l.keyword && l.keyword->compare(keyword, Qt::CaseInsensitive) == 0;
    });
}

int IndexOfKeyword(const QStringList& names, const QString& keyword)
{
    for (int i = 0; i < names.size(); ++i)
        if (names[i].compare(keyword, Qt::CaseInsensitive) == 0) return i;
    return -1;
}

}  // namespace

bool FlagMapping::HasKeyword(const MessageFlags& flags, const QString& keyword)
{
    return flags.keywords.contains(keyword, Qt::CaseInsensitive);
}

int FlagMapping::FlagIcon(const MessageFlags& flags)
{
    // Colour keywords on a message that is not flagged mean nothing: the
    // colour belongs to the flag, as PR_FLAG_ICON belongs to a flagged item.
    if (!flags.flagged) return 0;
    int bits = 0;
    for (size_t i = 0; i < kColourBits.size(); ++i)
        if (HasKeyword(flags, kColourBits[i])) bits |= 1 << i;
    return kIconForColourBits[bits];
}

void FlagMapping::ApplyFlags(const MessageFlags& flags, mapi::PropertyMap& props)
{
    int messageFlags = props.value(mapi::PR_MESSAGE_FLAGS, 0).toInt();
    for (const ReadBit& b : kMessageFlagBits)
        messageFlags = flags.*b.flag ? (messageFlags | b.bit) : (messageFlags & ~b.bit);
    props.insert(mapi::PR_MESSAGE_FLAGS, messageFlags);

    const int status = flags.flagged ? mapi::FLAG_STATUS_MARKED
                     : HasKeyword(flags, kCompleted) ? mapi::FLAG_STATUS_COMPLETE
                                                     : mapi::FLAG_STATUS_NONE;
    props.insert(mapi::PR_FLAG_STATUS, status);

    if (const int icon = FlagIcon(flags)) props.insert(mapi::PR_FLAG_ICON, icon);
    else props.remove(mapi::PR_FLAG_ICON);

    props.remove(mapi::PR_LAST_VERB_EXECUTED);
    for (const Verb& v : kVerbs) {
        if (v.flag ? flags.*v.flag : HasKeyword(flags, *v.keyword)) {
            props.insert(mapi::PR_LAST_VERB_EXECUTED, v.verb);
            break;
        }
    }
}

MessageFlags FlagMapping::WithFlagStatus(MessageFlags flags, int flagStatus)
{
    switch (flagStatus) {
    case mapi::FLAG_STATUS_NONE:
    case mapi::FLAG_STATUS_COMPLETE:
        flags.flagged = false;
        for (const QString& bit : kColourBits) RemoveKeyword(flags, bit);
        if (flagStatus == mapi::FLAG_STATUS_COMPLETE) AddKeyword(flags, kCompleted);
        else RemoveKeyword(flags, kCompleted);
        break;
    case mapi::FLAG_STATUS_MARKED:
        flags.flagged = true;
        RemoveKeyword(flags, kCompleted);
        break;
    default:
        break;
    }
    return flags;
}

MessageFlags FlagMapping::FromMaildirInfo(const QString& info, const QStringList& keywordNames)
{
    MessageFlags flags;
    const QStringView letters = info.startsWith(QLatin1String("2,")) ? QStringView(info).mid(2) : QStringView(info);
    for (QChar c : letters) {
        const char16_t u = c.unicode();
        if (u >= u'a' && u <= u'z') {
            const int index = u - u'a';
            if (index < keywordNames.size() && !keywordNames[index].isEmpty()) AddKeyword(flags, keywordNames[index]);
            continue;
        }
        for (const MaildirLetter& l : kMaildirLetters) {
            if (l.letter != u) continue;
            if (l.flag) flags.*l.flag = true;
            else AddKeyword(flags, *l.keyword);
        }
    }
    return flags;
}

QString FlagMapping::ToMaildirInfo(const MessageFlags& flags, QStringList& keywordNames)
{
    QString info;
    for (const MaildirLetter& l : kMaildirLetters)
        if (l.flag ? flags.*l.flag : HasKeyword(flags, *l.keyword)) info += QLatin1Char(l.letter);

    std::vector<int> indexes;
    for (const QString& keyword : flags.keywords) {
        if (keyword.isEmpty() || IsLetterKeyword(keyword)) continue;
        int index = IndexOfKeyword(keywordNames, keyword);
        if (index < 0 && keywordNames.size() < kMaxKeywordLetters) {
            keywordNames.append(keyword);
            index = static_cast<int>(keywordNames.size()) - 1;
        }
        if (index >= 0 && index < kMaxKeywordLetters) indexes.push_back(index);
    }
    std::sort(indexes.begin(), indexes.end());
    indexes.erase(std::unique(indexes.begin(), indexes.end()), indexes.end());
    for (int index : indexes) info += QLatin1Char(static_cast<char>('a' + index));
    return info;
}

}  // namespace mv::stores
