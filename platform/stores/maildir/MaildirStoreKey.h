#pragma once
// The identity of a Maildir store, kept in a small file at its root
// ("mailvane-store", mode 0600) so that it follows the data folder when it
// is moved or restored elsewhere. The file holds a random key and the roots
// the store has been opened at: identifiers of earlier versions were made
// from the root path, and a rule that saved one must still find this store.
//
// Format, one entry a line: "key <32 hex digits>" once, then "root <path>"
// with the path percent-encoded.

#include <QByteArray>
#include <QString>
#include <QStringList>

namespace mv::stores::maildir {

class MaildirStoreKey {
public:
    static constexpr char kFileName[] = "mailvane-store";

    // Reads the file, or creates it with a new key when there is none, and
    // adds `canonicalRoot` to its roots. A root that cannot be written (read
    // only, full disk) gives a key() that is empty: the store then falls
    // back to the path-based identifier.
    static MaildirStoreKey Load(const QString& canonicalRoot);

    const QByteArray& key() const { return m_key; }  // hex; empty when there is no usable file
    const QStringList& roots() const { return m_roots; }

private:
    static bool Parse(const QByteArray& text, MaildirStoreKey& into);
    QByteArray Serialize() const;
    bool Write(const QString& file, bool replace) const;

    QByteArray m_key;
    QStringList m_roots;
};

}  // namespace mv::stores::maildir
