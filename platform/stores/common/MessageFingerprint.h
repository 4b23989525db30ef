#pragma once
// The fingerprint every store gives a message's bytes, so that one store's
// fingerprint finds the copy another store made: the Message-ID field
// unfolded, the size as RFC822.SIZE counts it (CRLF line ends, whatever
// the bytes have) and the arrival time to the second, as IMAP keeps it.

#include "platform/mapi/MessageStore.h"

namespace mv::stores {

class MessageFingerprint {
public:
    // `uniqueName` is left empty: only a store that names files knows it.
    static mapi::Fingerprint Of(const QByteArray& bytes, const QDateTime& arrived);
    static qint64 CrlfSize(const QByteArray& bytes);
};

}  // namespace mv::stores
