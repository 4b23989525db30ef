#include "platform/corpus/MaildirWriter.h"

#include <QDir>
#include <QFile>
#include <QSaveFile>

#include <algorithm>

namespace mv::corpus {
namespace {

const QString kKeywordFile = QStringLiteral("dovecot-keywords");
constexpr int kMaxKeywords = 26;  // one letter each, a..z

}  // namespace

MaildirWriter::MaildirWriter(QString root) : m_root(std::move(root)) {}

QString MaildirWriter::FolderPath(const QString& folder) const
{
    if (folder.isEmpty()) return m_root;
    return m_root + "/." + QString(folder).replace('/', '.');
}

QString MaildirWriter::InfoFlags(const mapi::MessageFlags& flags, QStringList& keywordNames)
{
    // System flags in ASCII order, as the Maildir convention asks. Forwarded
    // is the "passed" letter P and also a keyword letter: Dovecot does not
    // map P to $Forwarded, so IMAP clients would not see it otherwise.
    QString info;
    if (flags.draft) info += 'D';
    if (flags.flagged) info += 'F';
    if (flags.keywords.contains("$Forwarded")) info += 'P';
    if (flags.answered) info += 'R';
    if (flags.seen) info += 'S';
    if (flags.deleted) info += 'T';
    QString letters;
    for (const QString& keyword : flags.keywords) {
        qsizetype index = keywordNames.indexOf(keyword);
        if (index < 0 && keywordNames.size() < kMaxKeywords) {
            keywordNames << keyword;
            index = keywordNames.size() - 1;
        }
        if (index >= 0) letters += QChar(static_cast<char16_t>(u'a' + index));
    }
    std::sort(letters.begin(), letters.end());
    return info + letters;
}

QStringList MaildirWriter::ReadKeywords(const QString& folder) const
{
    QStringList names;
    QFile file(FolderPath(folder) + "/" + kKeywordFile);
    if (!file.open(QIODevice::ReadOnly)) return names;
    while (!file.atEnd()) {
        const QString line = QString::fromUtf8(file.readLine()).trimmed();
        const qsizetype space = line.indexOf(' ');
        bool ok = false;
        const int index = line.left(space).toInt(&ok);
        if (space <= 0 || !ok || index < 0 || index >= kMaxKeywords) continue;
        while (names.size() <= index) names << QString();
        names[index] = line.mid(space + 1);
    }
    return names;
}

Status MaildirWriter::WriteKeywords(const QString& folder, const QStringList& names)
{
    QSaveFile file(FolderPath(folder) + "/" + kKeywordFile);
    if (!file.open(QIODevice::WriteOnly)) return Error::permanent("Cannot write " + file.fileName());
    for (qsizetype i = 0; i < names.size(); ++i)
        if (!names[i].isEmpty()) file.write(QByteArray::number(i) + " " + names[i].toUtf8() + "\n");
    if (!file.commit()) return Error::permanent("Cannot write " + file.fileName() + ": " + file.errorString());
    return Status::success();
}

Status MaildirWriter::EnsureFolder(const QString& folder)
{
    const QString path = FolderPath(folder);
    for (const char* sub : {"cur", "new", "tmp"}) {
        if (!QDir().mkpath(path + "/" + sub)) return Error::permanent("Cannot create folder " + path + "/" + sub);
    }
    if (!folder.isEmpty()) {
        // Maildir++ marks every folder but the INBOX with this empty file.
        QFile marker(path + "/maildirfolder");
        if (!marker.exists() && !marker.open(QIODevice::WriteOnly))
            return Error::permanent("Cannot create " + marker.fileName());
    }
    return Status::success();
}

Status MaildirWriter::Write(const std::vector<GeneratedMessage>& messages)
{
    m_counts.clear();
    QHash<QString, QStringList> keywords;
    for (const QString& folder : CorpusGenerator::Folders()) {
        if (Status s = EnsureFolder(folder); !s) return s;
        keywords.insert(folder, ReadKeywords(folder));
    }
    for (size_t seq = 0; seq < messages.size(); ++seq) {
        const GeneratedMessage& m = messages[seq];
        if (!keywords.contains(m.folder)) {
            if (Status s = EnsureFolder(m.folder); !s) return s;
            keywords.insert(m.folder, ReadKeywords(m.folder));
        }
        const QString folder = FolderPath(m.folder);
        const QString unique = QStringLiteral("%1.%2.mvcorpus").arg(m.message.internalDate.toSecsSinceEpoch()).arg(seq);
        const QString final = folder + "/cur/" + unique + ":2," + InfoFlags(m.message.flags, keywords[m.folder]);
        if (QFile::exists(final)) return Error::permanent("Refusing to overwrite existing message " + final);

        QFile file(folder + "/tmp/" + unique);
        if (!file.open(QIODevice::WriteOnly | QIODevice::NewOnly))
            return Error::permanent("Cannot create " + file.fileName() + ": " + file.errorString());
        const bool written = file.write(m.message.rfc822) == m.message.rfc822.size() && file.flush() &&
                             file.setFileTime(m.message.internalDate, QFileDevice::FileModificationTime);
        file.close();
        if (!written || !QFile::rename(file.fileName(), final)) {
            QFile::remove(file.fileName());
            return Error::permanent("Cannot write " + final);
        }
        ++m_counts[m.folder];
    }
    for (auto it = keywords.constBegin(); it != keywords.constEnd(); ++it) {
        if (it.value().isEmpty()) continue;
        if (Status s = WriteKeywords(it.key(), it.value()); !s) return s;
    }
    return Status::success();
}

}  // namespace mv::corpus
