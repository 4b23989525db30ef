#pragma once
// Binary identifiers of the Maildir store. Every one starts with the magic
// "MVD1" (backend and version) so it can never be taken for another
// backend's. A message id holds its folder and unique name, so it changes
// when the message moves. Folder and message ids hold paths relative to
// the root, so they stay valid when the data folder moves.
//
//   store:   "MVD1" + "key:" + the hex key of MaildirStoreKey
//            (earlier versions, and a root where no key file can be kept:
//            "MVD1" + canonical root path, which always starts with '/')
//   folder:  "MVD1" + folder path relative to the root (UTF-8; "" = root)
//   message: "MVD1" + folder path + '\0' + unique name

#include <QByteArray>
#include <QString>

#include <optional>

namespace mv::stores::maildir {

inline constexpr char kMagic[] = "MVD1";

struct MessageKey {
    QString folder;
    QString unique;
};

QByteArray StoreIdFor(const QString& canonicalRoot);  // the path-based form
QByteArray StoreIdForKey(const QByteArray& hexKey);
QByteArray FolderIdFor(const QString& folderPath);
QByteArray MessageIdFor(const QString& folderPath, const QString& unique);

// nullopt when the id is not a Maildir folder id (wrong magic, or a message id).
std::optional<QString> ParseFolderId(const QByteArray& id);
std::optional<MessageKey> ParseMessageId(const QByteArray& id);

}  // namespace mv::stores::maildir
