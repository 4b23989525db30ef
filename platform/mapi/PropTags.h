#pragma once
// MAPI property tags at their MAPI numbers (type in the low word). Values
// travel as QVariant: PT_LONG/PT_I2 as int, PT_BOOLEAN as bool, string types
// as QString, PT_SYSTIME as a UTC QDateTime, PT_BINARY as QByteArray.

#include <QString>

#include <cstdint>

namespace mv::mapi {

using PropTag = std::uint32_t;

enum PropType : std::uint16_t {
    PT_UNSPECIFIED = 0x0000,
    PT_I2 = 0x0002,
    PT_LONG = 0x0003,
    PT_BOOLEAN = 0x000B,
    PT_OBJECT = 0x000D,
    PT_STRING8 = 0x001E,
    PT_UNICODE = 0x001F,
    PT_SYSTIME = 0x0040,
    PT_BINARY = 0x0102,
};

constexpr PropType PropTypeOf(PropTag tag) { return static_cast<PropType>(tag & 0xFFFFu); }
constexpr std::uint16_t PropIdOf(PropTag tag) { return static_cast<std::uint16_t>(tag >> 16); }

inline constexpr PropTag PR_IMPORTANCE = 0x00170003;
inline constexpr PropTag PR_MESSAGE_CLASS = 0x001A001E;
inline constexpr PropTag PR_SUBJECT = 0x0037001E;
inline constexpr PropTag PR_SENT_REPRESENTING_NAME = 0x0042001E;
inline constexpr PropTag PR_RCVD_REPRESENTING_NAME = 0x0044001E;
inline constexpr PropTag PR_SENT_REPRESENTING_ADDRTYPE = 0x0064001E;
inline constexpr PropTag PR_SENT_REPRESENTING_EMAIL_ADDRESS = 0x0065001E;
inline constexpr PropTag PR_RCVD_REPRESENTING_ADDRTYPE = 0x0077001E;
inline constexpr PropTag PR_RCVD_REPRESENTING_EMAIL_ADDRESS = 0x0078001E;
inline constexpr PropTag PR_INTERNET_MESSAGE_ID = 0x1035001E;
inline constexpr PropTag PR_RECIPIENT_TYPE = 0x0C150003;
inline constexpr PropTag PR_DISPLAY_CC = 0x0E03001E;
inline constexpr PropTag PR_DISPLAY_TO = 0x0E04001E;
inline constexpr PropTag PR_MESSAGE_DELIVERY_TIME = 0x0E060040;
inline constexpr PropTag PR_MESSAGE_FLAGS = 0x0E070003;
inline constexpr PropTag PR_MESSAGE_SIZE = 0x0E080003;
inline constexpr PropTag PR_MESSAGE_RECIPIENTS = 0x0E12000D;
inline constexpr PropTag PR_BODY = 0x1000001E;
inline constexpr PropTag PR_LAST_VERB_EXECUTED = 0x10810003;
inline constexpr PropTag PR_FLAG_STATUS = 0x10900003;
inline constexpr PropTag PR_FLAG_ICON = 0x10950003;
inline constexpr PropTag PR_DISPLAY_NAME = 0x3001001E;
inline constexpr PropTag PR_ADDRTYPE = 0x3002001E;
inline constexpr PropTag PR_EMAIL_ADDRESS = 0x3003001E;
inline constexpr PropTag PR_STORE_ENTRYID = 0x0FFB0102;
inline constexpr PropTag PR_ENTRYID = 0x0FFF0102;
inline constexpr PropTag PR_PARENT_ENTRYID = 0x0E090102;

// PR_MESSAGE_FLAGS bits
inline constexpr int MSGFLAG_READ = 0x0001;
inline constexpr int MSGFLAG_UNSENT = 0x0008;
inline constexpr int MSGFLAG_HASATTACH = 0x0010;

// PR_RECIPIENT_TYPE values
inline constexpr int MAPI_TO = 1;
inline constexpr int MAPI_CC = 2;
inline constexpr int MAPI_BCC = 3;

// PR_FLAG_STATUS values
inline constexpr int FLAG_STATUS_NONE = 0;
inline constexpr int FLAG_STATUS_COMPLETE = 1;
inline constexpr int FLAG_STATUS_MARKED = 2;

// PR_LAST_VERB_EXECUTED values
inline constexpr int EXCHIVERB_REPLYTOSENDER = 102;
inline constexpr int EXCHIVERB_REPLYTOALL = 103;
inline constexpr int EXCHIVERB_FORWARD = 104;

// PR_IMPORTANCE values
inline constexpr int IMPORTANCE_LOW = 0;
inline constexpr int IMPORTANCE_NORMAL = 1;
inline constexpr int IMPORTANCE_HIGH = 2;

// The tag's MAPI name ("PR_SUBJECT"), or "0x0037001E" for a tag not listed
// above; for logs and test output.
QString PropTagName(PropTag tag);

}  // namespace mv::mapi
