#include "Registry.h"

#include <QDir>
#include <QSettings>
#include <QStandardPaths>

#include <array>
#include <utility>

namespace mv::os {

namespace {

const std::array<std::pair<const char*, const char*>, 5> kHiveAliases{{
    {"HKCU", "HKEY_CURRENT_USER"},
    {"HKLM", "HKEY_LOCAL_MACHINE"},
    {"HKCR", "HKEY_CLASSES_ROOT"},
    {"HKU", "HKEY_USERS"},
    {"HKCC", "HKEY_CURRENT_CONFIG"},
}};

QStringList SplitKey(const QString& key)
{
    QStringList parts = key.split(QLatin1Char('\\'), Qt::SkipEmptyParts);
    if (!parts.isEmpty()) {
        for (const auto& [alias, hive] : kHiveAliases) {
            if (parts.front().compare(QLatin1String(alias), Qt::CaseInsensitive) == 0) {
                parts.front() = QLatin1String(hive);
            }
        }
    }
    return parts;
}

// QSettings splits on "/" and cannot hold an empty key, both of which a
// registry name may have; "%" is escaped so that decoding is exact. The
// empty (default) value is "@", as in exported registry files.
QString Encode(const QString& name)
{
    if (name.isEmpty()) return QStringLiteral("@");
    QString out = name;
    out.replace(QLatin1Char('%'), QLatin1String("%25"));
    out.replace(QLatin1Char('/'), QLatin1String("%2F"));
    out.replace(QLatin1Char('\\'), QLatin1String("%5C"));
    if (out.startsWith(QLatin1Char('@'))) out.replace(0, 1, QLatin1String("%40"));
    return out;
}

QString Decode(const QString& stored)
{
    if (stored == QLatin1String("@")) return {};
    return QString::fromUtf8(QByteArray::fromPercentEncoding(stored.toUtf8()));
}

QString FindName(const QStringList& stored, const QString& name)
{
    for (const QString& s : stored) {
        if (Decode(s).compare(name, Qt::CaseInsensitive) == 0) return s;
    }
    return {};
}

QStringList ChildGroups(QSettings& s, const QString& group)
{
    if (group.isEmpty()) return s.childGroups();
    s.beginGroup(group);
    QStringList out = s.childGroups();
    s.endGroup();
    return out;
}

QStringList ChildKeys(QSettings& s, const QString& group)
{
    s.beginGroup(group);
    QStringList out = s.childKeys();
    s.endGroup();
    return out;
}

Error FileError(const QSettings& s, const QString& path)
{
    const char* what = s.status() == QSettings::FormatError ? "is not a valid INI file" : "cannot be read or written";
    return Error::permanent(QStringLiteral("The registry file %1 %2").arg(path, QLatin1String(what)));
}

// Opens the file and checks it reads; a file that does not parse is never
// written to, so a damaged registry file loses nothing more.
class Ini {
public:
    explicit Ini(const QString& path) : m_path(path), m_s(path, QSettings::IniFormat) {}
    QSettings& s() { return m_s; }
    bool ok() const { return m_s.status() == QSettings::NoError; }
    Error error() const { return FileError(m_s, m_path); }
    Status Commit()
    {
        m_s.sync();
        if (!ok()) return error();
        return Status::success();
    }

    // The stored spelling of `key` as a QSettings group path. With `create`
    // the parts not yet there keep the caller's spelling.
    Result<QString> Resolve(const QString& key, bool create)
    {
        const QStringList parts = SplitKey(key);
        if (parts.isEmpty()) return Error::permanent(QStringLiteral("Empty registry key"));
        QString group;
        for (const QString& part : parts) {
            QString found = FindName(ChildGroups(m_s, group), part);
            if (found.isEmpty()) {
                if (!create) return Error::notFound(QStringLiteral("Registry key %1 not found").arg(key));
                found = Encode(part);
            }
            group = group.isEmpty() ? found : group + QLatin1Char('/') + found;
        }
        return group;
    }

    // The full QSettings path of an existing value.
    Result<QString> ResolveValue(const QString& key, const QString& name)
    {
        auto group = Resolve(key, false);
        if (!group) return group.error();
        const QString found = FindName(ChildKeys(m_s, *group), name);
        if (found.isEmpty()) {
            return Error::notFound(QStringLiteral("Registry value \"%1\" not found under %2").arg(name, key));
        }
        return *group + QLatin1Char('/') + found;
    }

    // Where `name` under `key` is or will be stored.
    Result<QString> ValuePathForWrite(const QString& key, const QString& name)
    {
        auto group = Resolve(key, true);
        if (!group) return group.error();
        QString found = FindName(ChildKeys(m_s, *group), name);
        if (found.isEmpty()) found = Encode(name);
        return *group + QLatin1Char('/') + found;
    }

private:
    QString m_path;
    QSettings m_s;
};

Status Write(const QString& path, const QString& key, const QString& name, const QVariant& value)
{
    Ini ini(path);
    if (!ini.ok()) return ini.error();
    auto where = ini.ValuePathForWrite(key, name);
    if (!where) return where.error();
    ini.s().setValue(*where, value);
    return ini.Commit();
}

}  // namespace

Registry::Registry(QString iniPath) : m_path(std::move(iniPath)) {}

QString Registry::DefaultPath()
{
    return QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation) +
           QStringLiteral("/Mailvane/registry.ini");
}

Result<QString> Registry::ReadString(const QString& key, const QString& name) const
{
    Ini ini(m_path);
    if (!ini.ok()) return ini.error();
    auto where = ini.ResolveValue(key, name);
    if (!where) return where.error();
    const QVariant v = ini.s().value(*where);
    // An unquoted value with commas, as a person may type it, reads as a list.
    if (v.typeId() == QMetaType::QStringList) return v.toStringList().join(QStringLiteral(", "));
    return v.toString();
}

Result<quint32> Registry::ReadDword(const QString& key, const QString& name) const
{
    auto text = ReadString(key, name);
    if (!text) return text.error();
    bool ok = false;
    const QString t = text->trimmed();
    quint32 n = t.startsWith(QLatin1String("0x"), Qt::CaseInsensitive) ? t.mid(2).toUInt(&ok, 16) : t.toUInt(&ok);
    if (!ok) {
        // A DWORD written as a negative Long is the same 32 bits.
        const int negative = t.toInt(&ok);
        n = static_cast<quint32>(negative);
    }
    if (!ok) return Error::permanent(QStringLiteral("Registry value \"%1\" under %2 is not a DWORD").arg(name, key));
    return n;
}

Status Registry::WriteString(const QString& key, const QString& name, const QString& value)
{
    return Write(m_path, key, name, value);
}

Status Registry::WriteDword(const QString& key, const QString& name, quint32 value)
{
    return Write(m_path, key, name, QVariant::fromValue(value));
}

Status Registry::DeleteValue(const QString& key, const QString& name)
{
    Ini ini(m_path);
    if (!ini.ok()) return ini.error();
    auto where = ini.ResolveValue(key, name);
    if (!where) return where.error();
    ini.s().remove(*where);
    return ini.Commit();
}

Status Registry::DeleteKey(const QString& key)
{
    Ini ini(m_path);
    if (!ini.ok()) return ini.error();
    auto group = ini.Resolve(key, false);
    if (!group) return group.error();
    ini.s().remove(*group);
    return ini.Commit();
}

bool Registry::KeyExists(const QString& key) const
{
    Ini ini(m_path);
    return ini.ok() && ini.Resolve(key, false).ok();
}

Result<QStringList> Registry::SubKeys(const QString& key) const
{
    Ini ini(m_path);
    if (!ini.ok()) return ini.error();
    auto group = ini.Resolve(key, false);
    if (!group) return group.error();
    QStringList out;
    for (const QString& g : ChildGroups(ini.s(), *group)) out << Decode(g);
    return out;
}

Result<QStringList> Registry::ValueNames(const QString& key) const
{
    Ini ini(m_path);
    if (!ini.ok()) return ini.error();
    auto group = ini.Resolve(key, false);
    if (!group) return group.error();
    QStringList out;
    for (const QString& k : ChildKeys(ini.s(), *group)) out << Decode(k);
    return out;
}

}  // namespace mv::os
