#include "HandWrittenSet.h"

#include <QTimeZone>

namespace mv::conformance {
namespace {

using namespace mv::mapi;
using R = Restriction;

const QString kBudget = QStringLiteral("Budget review for Q3");
const QString kAnnualDraft = QStringLiteral("Annual report draft");
const QString kLunch = QStringLiteral("Lunch on Friday?");
const QString kReBudget = QStringLiteral("Re: Budget review for Q3");
const QString kOutage = QStringLiteral("Server outage report");
const QString kInvoice = QStringLiteral("Invoice 2001 overdue");
const QString kWeekend = QStringLiteral("Weekend plans");
const QString kQuarterly = QStringLiteral("Quarterly NUMBERS annual");
const QString kUnicode = QStringLiteral("Ünïcode Grüße from Zürich");
const QString kMeeting = QStringLiteral("Meeting notes");
const QString kParty = QStringLiteral("Report on the annual party");
const QString kDeleted = QStringLiteral("Deleted leftovers");

QDateTime Utc(int y, int m, int d, int h = 9, int min = 0)
{
    return QDateTime(QDate(y, m, d), QTime(h, min), QTimeZone::utc());
}

MessageFlags Flags(bool seen, bool flagged = false, bool answered = false, QStringList keywords = {}, bool deleted = false)
{
    MessageFlags f;
    f.seen = seen;
    f.flagged = flagged;
    f.answered = answered;
    f.keywords = std::move(keywords);
    f.deleted = deleted;
    return f;
}

NewMessage Mail(const QDateTime& date, const char* headers, const char* body, MessageFlags flags)
{
    static int serial = 0;
    QByteArray raw = QByteArray(headers).replace("\n", "\r\n");
    raw += "Date: " + date.toString(Qt::RFC2822Date).toLatin1() + "\r\n";
    raw += "Message-ID: <hand" + QByteArray::number(++serial) + "@mailvane.test>\r\n";
    raw += "MIME-Version: 1.0\r\nContent-Type: text/plain; charset=UTF-8\r\nContent-Transfer-Encoding: 8bit\r\n\r\n";
    raw += QByteArray(body).replace("\n", "\r\n") + "\r\n";
    return NewMessage{raw, std::move(flags), date, {}};
}

// The engine's shapes: several words ANDed, several address terms ORed,
// address-like terms on the address property, others on the name.
Restriction Words(PropTag tag, std::initializer_list<const char*> terms)
{
    std::list<Restriction> all;
    for (const char* t : terms) all.push_back(R::Content(tag, QString::fromUtf8(t)));
    return all.size() == 1 ? all.front() : R::And(std::move(all));
}

bool AddressLike(const QString& term) { return term.contains(QLatin1Char('@')) && term.contains(QLatin1Char('.')); }

Restriction Terms(PropTag addressTag, PropTag nameTag, std::initializer_list<const char*> terms)
{
    std::list<Restriction> any;
    for (const char* t : terms) {
        const QString term = QString::fromUtf8(t);
        any.push_back(R::Content(AddressLike(term) ? addressTag : nameTag, term));
    }
    return any.size() == 1 ? any.front() : R::Or(std::move(any));
}

Restriction From(std::initializer_list<const char*> terms)
{
    return Terms(PR_SENT_REPRESENTING_EMAIL_ADDRESS, PR_SENT_REPRESENTING_NAME, terms);
}

Restriction To(std::initializer_list<const char*> terms)
{
    return R::Sub(PR_MESSAGE_RECIPIENTS, Terms(PR_EMAIL_ADDRESS, PR_DISPLAY_NAME, terms));
}

Restriction Cc(std::initializer_list<const char*> terms) { return Terms(PR_DISPLAY_CC, PR_DISPLAY_CC, terms); }

Restriction Eq(PropTag tag, int value) { return R::Property(RELOP_EQ, tag, value); }
Restriction Before(const QDateTime& cutOff) { return R::Property(RELOP_LT, PR_MESSAGE_DELIVERY_TIME, cutOff); }
Restriction NoneSet() { return R::And({R::Property(RELOP_NE, PR_FLAG_STATUS, 1), R::Property(RELOP_NE, PR_FLAG_STATUS, 2)}); }
Restriction Replied() { return R::Or({Eq(PR_LAST_VERB_EXECUTED, 102), Eq(PR_LAST_VERB_EXECUTED, 103)}); }
Restriction Unread() { return R::Bitmask(BMR_EQZ, PR_MESSAGE_FLAGS, MSGFLAG_READ); }
Restriction Read() { return R::Bitmask(BMR_NEZ, PR_MESSAGE_FLAGS, MSGFLAG_READ); }

}  // namespace

QDateTime HandWrittenNow() { return Utc(2026, 11, 1, 12, 0); }

std::vector<NewMessage> HandWrittenMessages()
{
    return {
        Mail(Utc(2026, 10, 30),
             "From: Alice Smith <alice@example.com>\nTo: Me <me@mailvane.test>\nCc: Bob Jones <bob@example.org>\n"
             "Subject: Budget review for Q3\nImportance: high\n",
             "Please find the annual report attached.", Flags(true)),
        Mail(Utc(2026, 6, 1),
             "From: \"Bob Jones\" <bob@example.org>\nTo: Team <team@example.com>, Carol White <carol@example.net>\n"
             "Subject: Annual report draft\n",
             "The annual budget figures.", Flags(false, true)),
        Mail(Utc(2025, 12, 24),
             "From: carol@example.net\nTo: Me <me@mailvane.test>\nCc: Alice Smith <alice@example.com>\n"
             "Subject: Lunch on Friday?\nX-Priority: 5 (Lowest)\n",
             "Shall we meet at noon?", Flags(true, false, true)),
        Mail(Utc(2026, 10, 31),
             "From: Dave Brown <dave@corp.example>\nTo: Alice Smith <alice@example.com>\nCc: Me <me@mailvane.test>\n"
             "Subject: Re: Budget review for Q3\n",
             "The report is attached below.", Flags(true, false, false, {"$Forwarded"})),
        Mail(Utc(2024, 1, 15),
             "From: Ops Alerts <alerts@ops.example>\nTo: Me <me@mailvane.test>\nSubject: Server outage report\n",
             "All systems are back.", Flags(true, false, false, {"$Completed"})),
        Mail(Utc(2026, 9, 1),
             "From: Billing <billing@vendor.example>\nTo: Me <me@mailvane.test>\nBcc: Erin West <erin@example.com>\n"
             "Subject: Invoice 2001 overdue\n",
             "Please pay.", Flags(false, true, false, {"$MailFlagBit2"})),
        Mail(Utc(2026, 11, 1, 11, 0),
             "From: Erin West <erin@example.com>\nTo: Carol White <carol@example.net>\n"
             "Cc: Dave Brown <dave@corp.example>, Frank <frank@example.org>\nSubject: Weekend plans\n",
             "Hiking?", Flags(false, true, true, {"$Forwarded", "$MailFlagBit0"})),
        Mail(Utc(2023, 5, 5),
             "From: Frank <frank@example.org>\nTo: Me <me@mailvane.test>\nSubject: Quarterly NUMBERS annual\n"
             "Importance: normal\n",
             "Numbers inside.", Flags(true, false, false, {"$Completed", "$MailFlagBit1"})),
        Mail(Utc(2026, 8, 8),
             "From: =?UTF-8?Q?J=C3=BCrgen_M=C3=BCller?= <juergen@example.de>\nTo: Me <me@mailvane.test>\n"
             "Subject: =?UTF-8?Q?=C3=9Cn=C3=AFcode_Gr=C3=BC=C3=9Fe_from_Z=C3=BCrich?=\nX-Priority: 1\n",
             "Viele Grüße", Flags(false)),
        Mail(Utc(2026, 2, 2),
             "From: Alice Smith <alice@example.com>\nTo: Bob Jones <bob@example.org>\nSubject: Meeting notes\n",
             "Notes from the meeting.", Flags(true, true, true, {"$MailFlagBit0", "$MailFlagBit2"})),
        Mail(Utc(2026, 7, 7),
             "From: Grace Hopper <grace@example.com>\nTo: Me <me@mailvane.test>\nCc: grace@example.com\n"
             "Subject: Report on the annual party\n",
             "Photos follow.", Flags(true)),
        Mail(Utc(2026, 10, 1),
             "From: Alice Smith <alice@example.com>\nTo: Me <me@mailvane.test>\nSubject: Deleted leftovers\n",
             "budget annual report", Flags(false, true, false, {}, true)),
    };
}

QStringList VisibleSubjects()
{
    return {kBudget, kAnnualDraft, kLunch, kReBudget, kOutage, kInvoice,
            kWeekend, kQuarterly, kUnicode, kMeeting, kParty};
}

std::vector<NamedCase> RestrictionCases()
{
    const QDateTime now = HandWrittenNow();
    const QStringList all = VisibleSubjects();
    QStringList allButWeekend = all;
    allButWeekend.removeAll(kWeekend);
    return {
        {"EmptyAndIsEverything", R::And({}), all},
        {"AgeOlderThanThisYear", Before(Utc(2026, 1, 1, 0, 0)), {kLunch, kOutage, kQuarterly}},
        {"AgeOlderThanTwoHours", Before(now.addSecs(-2 * 3600)), allButWeekend},
        {"AgeCutOffWithinADay", Before(Utc(2026, 10, 31, 12, 0)), allButWeekend},
        {"AgeCutOffIsStrict", Before(Utc(2026, 6, 1)), {kLunch, kOutage, kQuarterly, kMeeting}},
        {"SubjectOneWord", Words(PR_SUBJECT, {"budget"}), {kBudget, kReBudget}},
        {"SubjectWordsAnded", Words(PR_SUBJECT, {"annual", "report"}), {kAnnualDraft, kParty}},
        {"SubjectQuotedPhrase", Words(PR_SUBJECT, {"annual report"}), {kAnnualDraft}},
        {"SubjectIgnoresCase", Words(PR_SUBJECT, {"numbers"}), {kQuarterly}},
        {"SubjectEncodedWordDecoded", Words(PR_SUBJECT, {"grüße", "ZÜRICH"}), {kUnicode}},
        {"SubjectDigits", Words(PR_SUBJECT, {"2001"}), {kInvoice}},
        {"BodyPhrase", Words(PR_BODY, {"annual report"}), {kBudget}},
        {"BodyWordsAnded", Words(PR_BODY, {"report", "attached"}), {kBudget, kReBudget}},
        {"BodyNonAsciiIgnoresCase", Words(PR_BODY, {"VIELE GRÜ"}), {kUnicode}},
        {"SenderAddress", From({"alice@example.com"}), {kBudget, kMeeting}},
        {"SenderDomainAddress", From({"@example.org"}), {kAnnualDraft, kQuarterly}},
        {"SenderDisplayName", From({"smith"}), {kBudget, kMeeting}},
        {"SenderNameIsAddressWhenNone", From({"carol"}), {kLunch}},
        {"SenderNameDecoded", From({"Müller"}), {kUnicode}},
        {"SenderNameTermMissesAddressOnly", From({"billing@vendor"}), {}},
        {"SenderAddressTermMissesNameOnly", R::Content(PR_SENT_REPRESENTING_EMAIL_ADDRESS, QStringLiteral("Jones")), {}},
        {"SenderOrList", From({"alice", "alerts@ops.example", "nobody"}), {kBudget, kMeeting, kOutage}},
        {"SenderEmptyTermMatchesAll", From({"alice@example.com", "", "bob@example.org"}), all},
        {"RecipientName", To({"carol"}), {kAnnualDraft, kWeekend}},
        {"RecipientOnlyOnCcMatchesTo", To({"alice@example.com"}), {kLunch, kReBudget}},
        {"RecipientCcName", To({"dave"}), {kWeekend}},
        {"RecipientBcc", To({"erin"}), {kInvoice}},
        {"RecipientOrList", To({"team@example.com", "Bob"}), {kBudget, kAnnualDraft, kMeeting}},
        {"RecipientNotTheSender", To({"juergen@example.de"}), {}},
        {"CcDisplayName", Cc({"bob"}), {kBudget}},
        {"CcSeveralTerms", Cc({"frank", "alice"}), {kLunch, kWeekend}},
        {"CcAddressAgainstDisplayString", Cc({"bob@example.org"}), {}},
        {"CcAddressShownWhenNoName", Cc({"grace@example.com"}), {kParty}},
        {"Unread", Unread(), {kAnnualDraft, kInvoice, kWeekend, kUnicode}},
        {"Read", Read(), {kBudget, kLunch, kReBudget, kOutage, kQuarterly, kMeeting, kParty}},
        {"FlagComplete", Eq(PR_FLAG_STATUS, 1), {kOutage, kQuarterly}},
        {"FlagFollowUp", Eq(PR_FLAG_STATUS, 2), {kAnnualDraft, kInvoice, kWeekend, kMeeting}},
        {"FlagNoneSet", NoneSet(), {kBudget, kLunch, kReBudget, kUnicode, kParty}},
        {"FlagRed", Eq(PR_FLAG_ICON, 6), {kAnnualDraft}},
        {"FlagBlue", Eq(PR_FLAG_ICON, 5), {kInvoice}},
        {"FlagOrange", Eq(PR_FLAG_ICON, 2), {kWeekend}},
        {"FlagPurple", Eq(PR_FLAG_ICON, 1), {kMeeting}},
        {"FlagYellowOnlyWhenFlagged", Eq(PR_FLAG_ICON, 4), {}},
        {"ImportanceLow", Eq(PR_IMPORTANCE, 0), {kLunch}},
        {"ImportanceNormal", Eq(PR_IMPORTANCE, 1),
         {kAnnualDraft, kReBudget, kOutage, kInvoice, kWeekend, kQuarterly, kMeeting, kParty}},
        {"ImportanceHigh", Eq(PR_IMPORTANCE, 2), {kBudget, kUnicode}},
        {"LastVerbReplied", Replied(), {kLunch, kWeekend, kMeeting}},
        {"LastVerbForwarded", Eq(PR_LAST_VERB_EXECUTED, 104), {kReBudget}},
        {"NotUnread", R::Not(Unread()), {kBudget, kLunch, kReBudget, kOutage, kQuarterly, kMeeting, kParty}},
        {"NotOnMissingProperty", R::Not(Eq(PR_LAST_VERB_EXECUTED, 104)),
         {kBudget, kAnnualDraft, kLunch, kOutage, kInvoice, kWeekend, kQuarterly, kUnicode, kMeeting, kParty}},
        {"ExistFlagIcon", R::Exist(PR_FLAG_ICON), {kAnnualDraft, kInvoice, kWeekend, kMeeting}},
        {"ExistLastVerb", R::Exist(PR_LAST_VERB_EXECUTED), {kLunch, kReBudget, kWeekend, kMeeting}},
        {"SenderAndFlagged", R::And({From({"alice"}), Eq(PR_FLAG_STATUS, 2)}), {kMeeting}},
        {"SubjectAndUnreadNone", R::And({Words(PR_SUBJECT, {"budget"}), Unread()}), {}},
        {"EngineShapedRule",
         R::And({Before(Utc(2026, 10, 1)), Words(PR_SUBJECT, {"annual", "report"}), From({"grace", "bob@example.org"}),
                 To({"me@mailvane.test", "carol"}), Read(), NoneSet(), Eq(PR_IMPORTANCE, 1)}),
         {kParty}},
        {"EveryCriterionKindAtOnce",
         R::And({Before(now), Words(PR_SUBJECT, {"weekend"}), From({"erin@example.com"}), To({"Carol White"}),
                 Cc({"dave", "nobody"}), Words(PR_BODY, {"hiking"}), Unread(), Eq(PR_FLAG_ICON, 2),
                 Eq(PR_IMPORTANCE, 1), Replied()}),
         {kWeekend}},
    };
}

}  // namespace mv::conformance
