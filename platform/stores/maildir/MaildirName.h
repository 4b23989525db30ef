#pragma once
// Maildir file names: "<unique>:2,<info>" in cur/, "<unique>" in new/.
// The unique name is the message's identity inside a folder; the info part
// carries its flags and changes with them.

#include <QDateTime>
#include <QString>

namespace mv::stores::maildir {

struct MaildirName {
    QString unique;   // before the ':'
    QString info;     // after ":2,", empty when there is none
    bool hasInfo = false;

    static MaildirName Parse(const QString& fileName);
    QString FileName() const;  // unique + ":2," + info (always with the info part)

    // The delivery time of the Maildir convention "<secs>.<unique>.<host>":
    // the leading decimal seconds, invalid when the name does not start so.
    static QDateTime DeliveryTime(const QString& unique);
    // A fresh unique name delivered at `delivered` (UTC), unique within this
    // process and host: "<secs>.M<usec>P<pid>Q<counter>.<host>".
    static QString NewUnique(const QDateTime& delivered);
};

}  // namespace mv::stores::maildir
