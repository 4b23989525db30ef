#include "AddressBookDialog.h"

#include "DialogButtons.h"

#include "VCard.h"

#include "platform/mapi/MessageStore.h"
#include "platform/mapi/Restriction.h"
#include "platform/os/Clock.h"
#include "platform/outlook/NameSpace.h"

#include <QApplication>
#include <QDir>
#include <QDirIterator>
#include <QHBoxLayout>
#include <QHash>
#include <QHeaderView>
#include <QItemSelectionModel>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QScopeGuard>
#include <QSortFilterProxyModel>
#include <QStandardItemModel>
#include <QStandardPaths>
#include <QTreeView>
#include <QVBoxLayout>

#include <algorithm>

namespace mv::forms {

namespace {

using mapi::PropTag;

// Columns of the contents-table scan, in this order.
const std::vector<PropTag> kColumns = {mapi::PR_SENT_REPRESENTING_NAME,
                                       mapi::PR_SENT_REPRESENTING_EMAIL_ADDRESS,
                                       mapi::PR_RCVD_REPRESENTING_NAME,
                                       mapi::PR_RCVD_REPRESENTING_EMAIL_ADDRESS,
                                       mapi::PR_DISPLAY_TO,
                                       mapi::PR_DISPLAY_CC,
                                       mapi::PR_ENTRYID,
                                       mapi::PR_MESSAGE_DELIVERY_TIME};
enum Column : std::size_t {
    kSenderName,
    kSender,
    kReceiverName,
    kReceiver,
    kDisplayTo,
    kDisplayCc,
    kEntryId,
    kTime
};

QString Text(const mapi::Row& row, std::size_t column)
{
    return column < row.size() && row[column].isValid() ? row[column].toString() : QString();
}

// What a rule can match: something@somewhere, without blanks.
bool LooksLikeAddress(const QString& text)
{
    const int at = text.indexOf(u'@');
    return at > 0 && at < text.size() - 1 && !text.contains(u' ');
}

}  // namespace

struct AddressBookDialog::Seen {
    struct Person {
        QString name;
        QString address;
        bool named = false;  // a contact's own name: mail never overrides it
    };
    std::vector<Person> people;
    QHash<QString, std::size_t> byAddress;  // lower-case address -> people index

    void Add(const QString& name, const QString& address, bool fromContact)
    {
        const QString a = address.trimmed();
        if (!LooksLikeAddress(a)) return;
        QString n = name.trimmed();
        if (n.compare(a, Qt::CaseInsensitive) == 0) n.clear();
        const QString key = a.toLower();
        const auto it = byAddress.constFind(key);
        if (it == byAddress.constEnd()) {
            byAddress.insert(key, people.size());
            people.push_back({n, a, fromContact && !n.isEmpty()});
            return;
        }
        Person& p = people[*it];
        if (n.isEmpty() || p.named) return;
        if (fromContact || p.name.isEmpty()) {
            p.name = n;
            p.named = fromContact;
        }
    }
};

AddressBookDialog::AddressBookDialog(outlook::NameSpace& nameSpace, AddressBookOptions options,
                                     const os::Clock* clock, QWidget* parent)
    : QDialog(parent), m_nameSpace(nameSpace), m_options(std::move(options)), m_clock(clock)
{
    setObjectName(QStringLiteral("AddressBookDialog"));
    setModal(true);

    txtFilter = new QLineEdit(this);
    txtFilter->setObjectName(QStringLiteral("txtFilter"));
    txtFilter->setPlaceholderText(QStringLiteral("Type part of a name or address"));
    txtFilter->setClearButtonEnabled(true);

    m_model = new QStandardItemModel(0, 2, this);
    m_model->setHorizontalHeaderLabels({QStringLiteral("Name"), QStringLiteral("Address")});
    m_filter = new QSortFilterProxyModel(this);
    m_filter->setSourceModel(m_model);
    m_filter->setFilterCaseSensitivity(Qt::CaseInsensitive);
    m_filter->setFilterKeyColumn(-1);  // name or address

    lstContacts = new QTreeView(this);
    lstContacts->setObjectName(QStringLiteral("lstContacts"));
    lstContacts->setModel(m_filter);
    lstContacts->setRootIsDecorated(false);
    lstContacts->setUniformRowHeights(true);
    lstContacts->setEditTriggers(QAbstractItemView::NoEditTriggers);
    lstContacts->setSelectionMode(QAbstractItemView::ExtendedSelection);
    lstContacts->setSelectionBehavior(QAbstractItemView::SelectRows);

    lblStatus = new QLabel(this);
    lblStatus->setObjectName(QStringLiteral("lblStatus"));

    auto* buttons = MakeOkCancelRow(this, btnOK, btnCancel, QStringLiteral("Cancel"), lblStatus);
    auto* outer = new QVBoxLayout(this);
    outer->addWidget(txtFilter);
    outer->addWidget(lstContacts);
    outer->addLayout(buttons);
    resize(520, 440);

    connect(txtFilter, &QLineEdit::textChanged, m_filter, &QSortFilterProxyModel::setFilterFixedString);
    connect(lstContacts->selectionModel(), &QItemSelectionModel::selectionChanged, this,
            [this] { UpdateButtons(); });
    connect(lstContacts, &QTreeView::doubleClicked, this, &QDialog::accept);
    connect(btnOK, &QPushButton::clicked, this, &QDialog::accept);
    connect(btnCancel, &QPushButton::clicked, this, &QDialog::reject);
    UpdateButtons();
}

AddressBookDialog::~AddressBookDialog() = default;

QString AddressBookDialog::DefaultVCardFolder()
{
    const QString xdg = QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation);
    const QString underData = xdg + QStringLiteral("/contacts");
    if (!xdg.isEmpty() && QDir(underData).exists()) return underData;
    return QDir::homePath() + QStringLiteral("/.contacts");
}

void AddressBookDialog::UpdateButtons()
{
    btnOK->setEnabled(lstContacts->selectionModel()->hasSelection());
}

void AddressBookDialog::ScanFolder(mapi::MessageStore& store, const mapi::FolderInfo& folder, Seen& seen)
{
    // Only recent mail: on a remote store the restriction keeps the server's
    // answer small, and old correspondents are rarely wanted in new rules.
    std::unique_ptr<mapi::Restriction> recent;
    if (m_options.recentDays > 0) {
        const QDateTime now = m_clock ? m_clock->Now() : QDateTime::currentDateTime();
        recent = std::make_unique<mapi::Restriction>(mapi::Restriction::Property(
            mapi::RELOP_GE, mapi::PR_MESSAGE_DELIVERY_TIME, now.addDays(-m_options.recentDays).toUTC()));
    }
    auto rows = store.Query(folder.entryId, recent.get(), kColumns);
    if (!rows) {
        m_problems << store.DisplayName() + QLatin1Char('/') + folder.path + QStringLiteral(": ") +
                          rows.error().message;
        return;
    }
    std::vector<mapi::Row>& all = *rows;
    // Newest first, so the caps keep the correspondents of lately.
    std::sort(all.begin(), all.end(), [](const mapi::Row& a, const mapi::Row& b) {
        return (kTime < a.size() ? a[kTime].toDateTime() : QDateTime()) >
               (kTime < b.size() ? b[kTime].toDateTime() : QDateTime());
    });
    const std::size_t limit = std::min<std::size_t>(all.size(), std::max(0, m_options.maxRowsPerFolder));
    // Rows whose display lines name someone: only the message itself has
    // that recipient's address.
    std::vector<QByteArray> named;
    for (std::size_t i = 0; i < limit; ++i) {
        const mapi::Row& row = all[i];
        seen.Add(Text(row, kSenderName), Text(row, kSender), false);
        seen.Add(Text(row, kReceiverName), Text(row, kReceiver), false);
        bool hasName = false;
        for (std::size_t c : {kDisplayTo, kDisplayCc}) {
            for (const QString& part : Text(row, c).split(u';', Qt::SkipEmptyParts)) {
                if (LooksLikeAddress(part.trimmed()))
                    seen.Add(QString(), part, false);
                else
                    hasName = true;
            }
        }
        if (hasName && kEntryId < row.size()) named.push_back(row[kEntryId].toByteArray());
    }
    // Reading a message costs a round trip on a remote store: the newest few.
    named.resize(std::min<std::size_t>(named.size(), std::max(0, m_options.maxItemsRead)));
    for (const QByteArray& id : named) {
        if (id.isEmpty()) continue;
        auto record = store.Item(id);
        if (!record) continue;  // moved or deleted since the query
        for (const mapi::PropertyMap& r : record->recipients)
            seen.Add(r.value(mapi::PR_DISPLAY_NAME).toString(), r.value(mapi::PR_EMAIL_ADDRESS).toString(),
                     false);
    }
}

void AddressBookDialog::ScanStore(mapi::MessageStore& store, Seen& seen)
{
    auto folders = store.Folders();
    if (!folders) {
        m_problems << store.DisplayName() + QStringLiteral(": ") + folders.error().message;
        return;
    }
    for (const mapi::FolderInfo& f : *folders) {
        const bool inbox =
            f.specialUse.compare(QLatin1String("\\Inbox"), Qt::CaseInsensitive) == 0 ||
            (f.parentId.isEmpty() && f.name.compare(QLatin1String("INBOX"), Qt::CaseInsensitive) == 0);
        const bool sent = f.specialUse.compare(QLatin1String("\\Sent"), Qt::CaseInsensitive) == 0;
        if (inbox || sent) ScanFolder(store, f, seen);
    }
}

void AddressBookDialog::ScanVCards(Seen& seen)
{
    const QString folder = m_options.vcardFolder.isEmpty() ? DefaultVCardFolder() : m_options.vcardFolder;
    if (!QDir(folder).exists()) return;
    // Sync tools keep one sub-folder per address book.
    QDirIterator it(folder, {QStringLiteral("*.vcf"), QStringLiteral("*.vcard")},
                    QDir::Files | QDir::Readable,
                    QDirIterator::Subdirectories | QDirIterator::FollowSymlinks);
    QStringList files;
    while (it.hasNext() && files.size() < m_options.maxVCardFiles) files << it.next();
    files.sort();  // the same contact in two files: the first by name wins
    for (const QString& path : files) {
        auto cards = VCard::ReadFile(path);
        if (!cards) {
            m_problems << cards.error().message;
            continue;
        }
        for (const VCardContact& c : *cards)
            for (const QString& email : c.emails) seen.Add(c.name, email, true);
    }
}

void AddressBookDialog::Load()
{
    // The scan may wait on a server; say so rather than look frozen.
    QApplication::setOverrideCursor(Qt::WaitCursor);
    const auto restore = qScopeGuard([] { QApplication::restoreOverrideCursor(); });
    m_problems.clear();
    Seen seen;
    // Contacts first: their names are the ones the user chose.
    ScanVCards(seen);
    for (mapi::MessageStore* store : m_nameSpace.Stores())
        if (store) ScanStore(*store, seen);

    std::sort(seen.people.begin(), seen.people.end(), [](const Seen::Person& a, const Seen::Person& b) {
        const int byName = QString::localeAwareCompare(a.name, b.name);
        if (byName != 0) return byName < 0;
        return a.address.compare(b.address, Qt::CaseInsensitive) < 0;
    });
    m_model->removeRows(0, m_model->rowCount());
    for (const Seen::Person& p : seen.people)
        m_model->appendRow({new QStandardItem(p.name), new QStandardItem(p.address)});
    lstContacts->resizeColumnToContents(0);

    QString status = QStringLiteral("%1 addresses").arg(seen.people.size());
    if (!m_problems.isEmpty())
        status += QStringLiteral("; %1 source(s) could not be read").arg(m_problems.size());
    lblStatus->setText(status);
    lblStatus->setToolTip(m_problems.join(QLatin1Char('\n')));
    UpdateButtons();
}

std::vector<AddressBookEntry> AddressBookDialog::Entries() const
{
    std::vector<AddressBookEntry> out;
    for (int r = 0; r < m_model->rowCount(); ++r)
        out.push_back(
            {true, QStringLiteral("SMTP"), m_model->item(r, 0)->text(), m_model->item(r, 1)->text()});
    return out;
}

std::vector<AddressBookEntry> AddressBookDialog::Chosen() const
{
    std::vector<AddressBookEntry> out;
    for (int r = 0; r < m_filter->rowCount(); ++r) {
        const QModelIndex index = m_filter->index(r, 0);
        if (!lstContacts->selectionModel()->isRowSelected(r, QModelIndex())) continue;
        const QString name = index.data().toString();
        const QString address = m_filter->index(r, 1).data().toString();
        out.push_back({true, QStringLiteral("SMTP"), name.isEmpty() ? address : name, address});
    }
    return out;
}

std::vector<AddressBookEntry> AddressBookDialog::AddressBook(const QString& title)
{
    setWindowTitle(title);
    txtFilter->clear();
    Load();
    txtFilter->setFocus();
    if (exec() != QDialog::Accepted) return {};
    return Chosen();
}

}  // namespace mv::forms
