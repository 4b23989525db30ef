#pragma once
// An item (mail, meeting or report) of a store, as the engine and the forms
// reach it: identity, the follow-up flag, Move, and "safe" property access
// by MAPI tag (the sender's address, recipients, the copy line) without any
// prompt. Items are snapshots taken when fetched; a Move or Save acts on the
// store at once.

#include "OutlookConstants.h"

#include "platform/common/Error.h"
#include "platform/mapi/PropTags.h"

#include <QString>
#include <QVariant>

#include <vector>

namespace mv::outlook {

class Folder;

struct Recipient {
    QString name;     // display name (the address when there is none)
    QString address;  // SMTP address
    int type = 1;     // MAPI_TO 1, MAPI_CC 2, MAPI_BCC 3
};

class Item {
public:
    virtual ~Item() = default;

    virtual QString EntryID() const = 0;   // upper-case hex
    virtual QString StoreID() const = 0;   // upper-case hex of the item's store
    virtual QString MessageClass() const = 0;
    virtual ItemKind Kind() const = 0;
    virtual QString Subject() const = 0;

    // Follow-up flag (OlFlagStatus); SetFlagStatus changes the snapshot,
    // Save stores it.
    virtual int FlagStatus() const = 0;
    virtual void SetFlagStatus(int status) = 0;
    virtual Status Save() = 0;
    // Moves the item; afterwards this object names the moved item.
    virtual Status Move(const Folder& destination) = 0;

    // Safe access: a property by MAPI tag (invalid QVariant when absent).
    virtual QVariant Fields(mapi::PropTag tag) const = 0;
    virtual std::vector<Recipient> Recipients() const = 0;
    virtual QString SenderName() const = 0;
    virtual QString SenderEmailAddress() const = 0;
    virtual QString To() const = 0;   // display line of To recipients
    virtual QString CC() const = 0;   // display line of Cc recipients
    virtual QString Body() const = 0;
    virtual int Importance() const = 0;
    virtual bool UnRead() const = 0;
};

}  // namespace mv::outlook
