#pragma once
// Writes a generated corpus as a Maildir++ tree that Dovecot can share:
// the INBOX at the root, other folders as ".Name" (".Archive.Projects"),
// messages in cur/ named "<time>.<seq>.mvcorpus:2,<flags>" with the internal
// date as mtime, and keyword letters from each folder's dovecot-keywords.
// $Forwarded is written both as P and as a keyword letter.
//
// Each file is written in tmp/ and renamed into cur/, as a delivery would.
// Existing messages are never overwritten: a name that is taken is an error.

#include "platform/corpus/CorpusGenerator.h"

#include "platform/common/Error.h"

#include <QHash>
#include <QString>
#include <QStringList>

namespace mv::corpus {

class MaildirWriter {
public:
    explicit MaildirWriter(QString root);

    [[nodiscard]] Status Write(const std::vector<GeneratedMessage>& messages);

    // "" -> the root; "Archive/Projects" -> root/.Archive.Projects
    QString FolderPath(const QString& folder) const;
    // The info part after ":2," for `flags`; keywords get letters from
    // `keywordNames` (index = letter - 'a'), which grows for new ones.
    static QString InfoFlags(const mapi::MessageFlags& flags, QStringList& keywordNames);

    // Messages written per folder by the last Write.
    const QHash<QString, int>& Counts() const { return m_counts; }

private:
    Status EnsureFolder(const QString& folder);
    Status WriteKeywords(const QString& folder, const QStringList& names);
    QStringList ReadKeywords(const QString& folder) const;

    QString m_root;
    QHash<QString, int> m_counts;
};

}  // namespace mv::corpus
