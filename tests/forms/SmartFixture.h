#pragma once
// The smart forms over a real rule database (a copy of the blank template)
// and two real Maildir accounts, "Home" (Inbox, Sent, Archive, Archive/2026)
// and "Work" (Inbox, Projects), behind one namespace. Message boxes go to the
// scripted answerer; any error report not expected fails the test.

#include "RulePropsFixture.h"

#include "forms/frmRuleProps.h"

#include "platform/outlook/Windows.h"
#include "platform/stores/maildir/MaildirStore.h"

#include <QApplication>
#include <QTimer>

// Readable failure messages for Qt strings.
QT_BEGIN_NAMESPACE
inline void PrintTo(const QString& s, std::ostream* os)
{
    *os << '"' << s.toStdString() << '"';
}
inline void PrintTo(const QStringList& l, std::ostream* os)
{
    *os << '{' << l.join(QStringLiteral(" | ")).toStdString() << '}';
}
QT_END_NAMESPACE

namespace mv::test {

// The host's Explorer window reduced to what the smart forms ask of it: the
// selected message and the folder shown. No window exists in these tests.
class SelectionExplorer : public outlook::Explorer {
public:
    explicit SelectionExplorer(outlook::NameSpace& ns) : m_ns(ns) {}
    QString itemEntry, itemStore, folderEntry, folderStore;

    office::CommandBars* CommandBars() override { return nullptr; }
    std::vector<std::unique_ptr<outlook::Item>> Selection() override;
    int SelectionCount() override { return itemEntry.isEmpty() ? 0 : 1; }
    std::unique_ptr<outlook::Folder> CurrentFolder() override
    {
        return m_ns.GetFolderFromID(folderEntry, folderStore);
    }
    void Close() override {}

private:
    outlook::NameSpace& m_ns;
};

class SmartFixture : public RulePropsFixture {
protected:
    // The base's database and pickers; the namespace is replaced by one over
    // the two Maildir stores, and m_inbox/m_archive name Home's folders.
    void SetUp() override;

    // The folder of `store` ("Home" or "Work") with that display path.
    mapi::FolderInfo FolderOf(stores::maildir::MaildirStore& store, const QString& path);
    // Appends a message to a folder; returns its hex entry identifier.
    QString Deliver(stores::maildir::MaildirStore& store, const QString& folderPath,
                    const QByteArray& rfc822);
    // An Explorer showing `folderPath` of the Home store with `entryHex` selected.
    std::unique_ptr<SelectionExplorer> ExplorerOn(const QString& folderPath, const QString& entryHex);
    forms::RulePropsContext Context();

    // Runs `body` on the modal dialog of type W once it is shown by the next
    // exec(); closes it with reject() if `body` leaves it open, so a failed
    // expectation never hangs the test.
    template <typename W, typename F>
    static void WhenShown(F body)
    {
        QTimer::singleShot(0, [body]() mutable {
            auto* w = qobject_cast<W*>(QApplication::activeModalWidget());
            if (!w) {
                ADD_FAILURE() << "no modal " << W::staticMetaObject.className();
                if (QWidget* other = QApplication::activeModalWidget()) other->close();
                return;
            }
            body(*w);
            if (w->isVisible()) w->reject();
        });
    }
    template <typename W>
    static W* Child(QObject& form, const char* name)
    {
        W* w = form.findChild<W*>(QString::fromLatin1(name));
        EXPECT_NE(w, nullptr) << name;
        return w;
    }

    std::unique_ptr<stores::maildir::MaildirStore> m_home, m_work;
};

}  // namespace mv::test
