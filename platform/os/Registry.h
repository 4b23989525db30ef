#pragma once
// The registry, kept in an INI file ($XDG_CONFIG_HOME/Mailvane/registry.ini)
// through QSettings. Keys are written as on the original platform,
// backslash-separated from the hive down
// ("HKEY_CURRENT_USER\Software\Microsoft\Office\Outlook\Addins\Mailvane.Connect"),
// and, as there, matched without regard to case. Each key is a QSettings
// group; the key's default value has the empty name.
//
// Every call opens the file afresh, so several Registry objects and
// processes on one file see each other's writes. Failures come back as
// Status/Result: NotFound for a missing key or value, Permanent for a file
// that cannot be read or written (which is then left as it was).

#include "platform/common/Error.h"

#include <QString>
#include <QStringList>

namespace mv::os {

class Registry {
public:
    // `iniPath` is injectable for tests; the default is DefaultPath().
    explicit Registry(QString iniPath = DefaultPath());
    static QString DefaultPath();
    const QString& path() const { return m_path; }

    Result<QString> ReadString(const QString& key, const QString& name) const;
    // A value written as a string that reads as a number is a DWORD too.
    Result<quint32> ReadDword(const QString& key, const QString& name) const;
    Status WriteString(const QString& key, const QString& name, const QString& value);
    Status WriteDword(const QString& key, const QString& name, quint32 value);
    Status DeleteValue(const QString& key, const QString& name);
    // Removes the key with its values and all keys below it.
    Status DeleteKey(const QString& key);

    bool KeyExists(const QString& key) const;
    Result<QStringList> SubKeys(const QString& key) const;
    Result<QStringList> ValueNames(const QString& key) const;

private:
    QString m_path;
};

}  // namespace mv::os
