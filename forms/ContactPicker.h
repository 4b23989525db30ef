#pragma once
// The seam behind the editor's address-book buttons: the desktop shows an
// address-book dialog, tests return scripted entries, and a host without
// one returns nothing.

#include <QString>

#include <vector>

namespace mv::forms {

// One chosen recipient as the address book hands it back.
struct AddressBookEntry {
    bool hasAddressEntry = true;  // entries without one are skipped
    QString addrType;             // PR_ADDRTYPE: "SMTP", "EX", ...
    QString displayName;          // PR_DISPLAY_NAME
    QString address;
};

class ContactPicker {
public:
    virtual ~ContactPicker() = default;
    // The recipients chosen under `title`; empty when cancelled.
    virtual std::vector<AddressBookEntry> AddressBook(const QString& title) = 0;
};

class NoContactPicker final : public ContactPicker {
public:
    std::vector<AddressBookEntry> AddressBook(const QString&) override { return {}; }
};

}  // namespace mv::forms
