#pragma once
// The desktop's address book: the addresses seen in the stores' mail (the
// senders and recipients of recent messages in each Inbox and Sent folder)
// merged with the contacts of a vCard folder, such as one kept by a CardDAV
// sync tool. A filter box narrows the list; several entries may be chosen.
// Every entry comes back with address type "SMTP".
//
// The scan is capped (recent messages only, a bounded number per folder and
// of contact files) so that opening the dialog stays quick on large or
// remote stores. A store or a contact file that cannot be read is skipped
// and counted in the dialog's status line; nothing is written anywhere.

#include "ContactPicker.h"

#include <QDialog>
#include <QStringList>

class QLabel;
class QLineEdit;
class QPushButton;
class QSortFilterProxyModel;
class QStandardItemModel;
class QTreeView;

namespace mv::os {
class Clock;
}
namespace mv::mapi {
class MessageStore;
struct FolderInfo;
}  // namespace mv::mapi
namespace mv::outlook {
class NameSpace;
}

namespace mv::forms {

struct AddressBookOptions {
    QString vcardFolder;          // empty: DefaultVCardFolder()
    int recentDays = 365;         // only mail delivered this recently; 0: any age
    int maxRowsPerFolder = 2000;  // rows read from one folder's contents table
    int maxItemsRead = 50;        // messages per folder read for the addresses of named recipients
    int maxVCardFiles = 5000;
};

class AddressBookDialog : public QDialog, public ContactPicker {
    Q_OBJECT
public:
    // `nameSpace` and `clock` (nullptr: the system clock) must outlive the
    // dialog.
    AddressBookDialog(outlook::NameSpace& nameSpace, AddressBookOptions options = {},
                      const os::Clock* clock = nullptr, QWidget* parent = nullptr);
    ~AddressBookDialog() override;

    // Load, then the dialog modally under `title`; the chosen entries, or
    // none on Cancel.
    std::vector<AddressBookEntry> AddressBook(const QString& title) override;

    // Reads the stores and the vCard folder afresh.
    void Load();
    // Every entry, sorted by name then address.
    std::vector<AddressBookEntry> Entries() const;
    // The entries selected among those the filter shows, in list order.
    std::vector<AddressBookEntry> Chosen() const;
    // What could not be read during the last Load (one line per store,
    // folder or file).
    const QStringList& Problems() const { return m_problems; }

    // $XDG_DATA_HOME/contacts when it exists, else ~/.contacts.
    static QString DefaultVCardFolder();

private:
    struct Seen;
    void ScanStore(mapi::MessageStore& store, Seen& seen);
    void ScanFolder(mapi::MessageStore& store, const mapi::FolderInfo& folder, Seen& seen);
    void ScanVCards(Seen& seen);
    void UpdateButtons();

    outlook::NameSpace& m_nameSpace;
    AddressBookOptions m_options;
    const os::Clock* m_clock;
    QStringList m_problems;

    QLineEdit* txtFilter = nullptr;
    QTreeView* lstContacts = nullptr;
    QLabel* lblStatus = nullptr;
    QPushButton* btnOK = nullptr;
    QPushButton* btnCancel = nullptr;
    QStandardItemModel* m_model = nullptr;
    QSortFilterProxyModel* m_filter = nullptr;
};

}  // namespace mv::forms
