#include "platform/os/Registry.h"

#include <QFile>
#include <QSet>
#include <QTemporaryDir>

#include <gtest/gtest.h>

using mv::ErrorKind;
using mv::os::Registry;

namespace {

const QString kAddin = QStringLiteral(R"(HKEY_CURRENT_USER\Software\Microsoft\Office\Outlook\Addins\Mailvane.Connect)");
const QString kAddins = QStringLiteral(R"(HKEY_CURRENT_USER\Software\Microsoft\Office\Outlook\Addins)");

class RegistryTest : public ::testing::Test {
protected:
    QTemporaryDir dir;
    // A folder that does not exist yet: the first write creates it.
    Registry reg{dir.filePath(QStringLiteral("Mailvane/registry.ini"))};
};

TEST_F(RegistryTest, AddinRegistrationRoundTrip)
{
    ASSERT_TRUE(reg.WriteDword(kAddin, QStringLiteral("LoadBehavior"), 3).ok());
    ASSERT_TRUE(reg.WriteString(kAddin, QStringLiteral("FriendlyName"), QStringLiteral("Mailvane")).ok());
    ASSERT_TRUE(reg.WriteString(kAddin, QStringLiteral("Description"),
                                QStringLiteral("This Add-in provides Message Automation Rules.")).ok());
    ASSERT_TRUE(reg.WriteDword(kAddins + QStringLiteral(R"(\Other.Addin)"), QStringLiteral("LoadBehavior"), 2).ok());

    // A second object on the same file sees everything.
    const Registry again(reg.path());
    EXPECT_EQ(*again.ReadDword(kAddin, QStringLiteral("LoadBehavior")), 3u);
    EXPECT_EQ(*again.ReadString(kAddin, QStringLiteral("Description")),
              QStringLiteral("This Add-in provides Message Automation Rules."));
    auto subkeys = again.SubKeys(kAddins);
    ASSERT_TRUE(subkeys.ok());
    EXPECT_EQ(QSet<QString>(subkeys->begin(), subkeys->end()),
              (QSet<QString>{QStringLiteral("Mailvane.Connect"), QStringLiteral("Other.Addin")}));
    auto names = again.ValueNames(kAddin);
    ASSERT_TRUE(names.ok());
    EXPECT_EQ(names->size(), 3);

    // A text is not a DWORD.
    auto notNumber = again.ReadDword(kAddin, QStringLiteral("FriendlyName"));
    ASSERT_FALSE(notNumber.ok());
    EXPECT_EQ(notNumber.error().kind, ErrorKind::Permanent);
}

TEST_F(RegistryTest, KeysAndNamesMatchWithoutCaseAndKeepTheirSpelling)
{
    ASSERT_TRUE(reg.WriteDword(kAddin, QStringLiteral("LoadBehavior"), 3).ok());
    const QString shouted = QStringLiteral(R"(hkcu\SOFTWARE\microsoft\office\OUTLOOK\addins\mailvane.connect\)");
    EXPECT_EQ(*reg.ReadDword(shouted, QStringLiteral("loadbehavior")), 3u);

    // Writing through another spelling updates the same value.
    ASSERT_TRUE(reg.WriteDword(shouted, QStringLiteral("LOADBEHAVIOR"), 2).ok());
    EXPECT_EQ(*reg.ReadDword(kAddin, QStringLiteral("LoadBehavior")), 2u);
    EXPECT_EQ(*reg.ValueNames(kAddin), QStringList{QStringLiteral("LoadBehavior")});
    EXPECT_EQ(*reg.SubKeys(kAddins), QStringList{QStringLiteral("Mailvane.Connect")});
}

TEST_F(RegistryTest, NamesQSettingsWouldMisreadRoundTrip)
{
    const QString key = QStringLiteral(R"(HKEY_CURRENT_USER\Software\A/B %2F key)");
    const QStringList names{QString(), QStringLiteral("@"), QStringLiteral("path/with/slashes"),
                            QStringLiteral("100%"), QStringLiteral("back\\slash"), QStringLiteral("General")};
    for (const QString& name : names) {
        ASSERT_TRUE(reg.WriteString(key, name, QStringLiteral("v:") + name).ok()) << name.toStdString();
    }
    for (const QString& name : names) {
        auto v = reg.ReadString(key, name);
        ASSERT_TRUE(v.ok()) << name.toStdString();
        EXPECT_EQ(*v, QStringLiteral("v:") + name);
    }
    auto listed = reg.ValueNames(key);
    ASSERT_TRUE(listed.ok());
    EXPECT_EQ(QSet<QString>(listed->begin(), listed->end()), QSet<QString>(names.begin(), names.end()));
    EXPECT_EQ(*reg.SubKeys(QStringLiteral(R"(HKEY_CURRENT_USER\Software)")), QStringList{QStringLiteral("A/B %2F key")});
    // Commas would make QSettings read a list.
    ASSERT_TRUE(reg.WriteString(key, QStringLiteral("list"), QStringLiteral("a, b,c")).ok());
    EXPECT_EQ(*reg.ReadString(key, QStringLiteral("list")), QStringLiteral("a, b,c"));
}

TEST_F(RegistryTest, DeleteValueAndKeyAndMissingOnes)
{
    ASSERT_TRUE(reg.WriteDword(kAddin, QStringLiteral("LoadBehavior"), 3).ok());
    ASSERT_TRUE(reg.WriteString(kAddin + QStringLiteral(R"(\Sub)"), QStringLiteral("x"), QStringLiteral("y")).ok());
    ASSERT_TRUE(reg.WriteString(kAddins, QStringLiteral("keep"), QStringLiteral("me")).ok());

    ASSERT_TRUE(reg.DeleteValue(kAddin, QStringLiteral("loadbehavior")).ok());
    EXPECT_EQ(reg.ReadDword(kAddin, QStringLiteral("LoadBehavior")).error().kind, ErrorKind::NotFound);
    EXPECT_EQ(reg.DeleteValue(kAddin, QStringLiteral("LoadBehavior")).error().kind, ErrorKind::NotFound);

    ASSERT_TRUE(reg.DeleteKey(kAddin).ok());
    EXPECT_FALSE(reg.KeyExists(kAddin));
    EXPECT_FALSE(reg.KeyExists(kAddin + QStringLiteral(R"(\Sub)")));
    EXPECT_EQ(*reg.ReadString(kAddins, QStringLiteral("keep")), QStringLiteral("me"));
    EXPECT_EQ(reg.DeleteKey(kAddin).error().kind, ErrorKind::NotFound);
    EXPECT_EQ(reg.SubKeys(QStringLiteral(R"(HKEY_CURRENT_USER\Nowhere)")).error().kind, ErrorKind::NotFound);
    EXPECT_FALSE(reg.WriteString(QStringLiteral(R"(\\)"), QStringLiteral("x"), QStringLiteral("y")).ok());
}

TEST(RegistryFile, UnwritableOrDamagedFileGivesAnErrorAndIsLeftAlone)
{
    QTemporaryDir dir;
    // The parent of the INI file is a regular file: nothing can be created.
    QFile blocker(dir.filePath(QStringLiteral("blocker")));
    ASSERT_TRUE(blocker.open(QIODevice::WriteOnly));
    blocker.close();
    Registry blocked(dir.filePath(QStringLiteral("blocker/registry.ini")));
    auto st = blocked.WriteDword(kAddin, QStringLiteral("LoadBehavior"), 3);
    ASSERT_FALSE(st.ok());
    EXPECT_EQ(st.error().kind, ErrorKind::Permanent);
    EXPECT_TRUE(st.error().message.contains(QStringLiteral("blocker/registry.ini")));

    // A file QSettings cannot parse is neither read nor overwritten.
    const QString damagedPath = dir.filePath(QStringLiteral("damaged.ini"));
    const QByteArray damaged = "[HKEY_CURRENT_USER\nLoadBehavior=\"3\n";
    {
        QFile f(damagedPath);
        ASSERT_TRUE(f.open(QIODevice::WriteOnly));
        f.write(damaged);
    }
    Registry reg(damagedPath);
    EXPECT_FALSE(reg.WriteDword(kAddin, QStringLiteral("LoadBehavior"), 3).ok());
    EXPECT_FALSE(reg.ReadDword(kAddin, QStringLiteral("LoadBehavior")).ok());
    QFile f(damagedPath);
    ASSERT_TRUE(f.open(QIODevice::ReadOnly));
    EXPECT_EQ(f.readAll(), damaged);
}

}  // namespace
