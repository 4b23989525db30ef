#include "PropTags.h"

#include <array>
#include <utility>

namespace mv::mapi {
namespace {

#define MV_TAG(name) std::pair<PropTag, const char*>{name, #name}
constexpr std::array kNames = {
    MV_TAG(PR_IMPORTANCE), MV_TAG(PR_MESSAGE_CLASS), MV_TAG(PR_SUBJECT),
    MV_TAG(PR_SENT_REPRESENTING_NAME), MV_TAG(PR_RCVD_REPRESENTING_NAME),
    MV_TAG(PR_SENT_REPRESENTING_ADDRTYPE), MV_TAG(PR_SENT_REPRESENTING_EMAIL_ADDRESS),
    MV_TAG(PR_RCVD_REPRESENTING_ADDRTYPE), MV_TAG(PR_RCVD_REPRESENTING_EMAIL_ADDRESS),
    MV_TAG(PR_INTERNET_MESSAGE_ID), MV_TAG(PR_RECIPIENT_TYPE), MV_TAG(PR_DISPLAY_CC),
    MV_TAG(PR_DISPLAY_TO), MV_TAG(PR_MESSAGE_DELIVERY_TIME), MV_TAG(PR_MESSAGE_FLAGS),
    MV_TAG(PR_MESSAGE_SIZE), MV_TAG(PR_MESSAGE_RECIPIENTS), MV_TAG(PR_BODY),
    MV_TAG(PR_LAST_VERB_EXECUTED), MV_TAG(PR_FLAG_STATUS), MV_TAG(PR_FLAG_ICON),
    MV_TAG(PR_DISPLAY_NAME), MV_TAG(PR_ADDRTYPE), MV_TAG(PR_EMAIL_ADDRESS),
    MV_TAG(PR_STORE_ENTRYID), MV_TAG(PR_ENTRYID), MV_TAG(PR_PARENT_ENTRYID),
};
#undef MV_TAG

}  // namespace

QString PropTagName(PropTag tag)
{
    for (const auto& [value, name] : kNames)
        if (value == tag) return QString::fromLatin1(name);
    return QStringLiteral("0x") + QString::number(tag, 16).toUpper().rightJustified(8, QLatin1Char('0'));
}

}  // namespace mv::mapi
