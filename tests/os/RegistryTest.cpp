#include "platform/os/Registry.h"

#include <QFile>
#include <QSet>
#include <QTemporaryDir>

#include <gtest/gtest.h>

using mv::ErrorKind;
using mv::os::Registry;

namespace {

const QString kAddins = QStringLiteral(R"(HKEY_CURRENT_USER\Software\Microsoft\Office\Outlook\Addins)");
const QString kAddin = kAddins + QStringLiteral(R"(\Mailvane.Connect)");

QSet<QString> AsSet(const QStringList& l) { return {l.begin(), l.end()}; }

class RegistryTest : public ::testing::Test {
protected:
    QTemporaryDir dir;
    // The folder does not exist yet: the first write creates it.
    Registry reg{dir.filePath(QStringLiteral("Mailvane/registry.ini"))};
};

TEST_F(RegistryTest, AddinRegistrationRoundTripWithoutRegardToCaseAndIsDeleted)
{
    ASSERT_TRUE(reg.WriteDword(kAddin, QStringLiteral("LoadBehavior"), 3).ok());
    ASSERT_TRUE(reg.WriteString(kAddin, QStringLiteral("FriendlyName"), QStringLiteral("Mailvane")).ok());
    ASSERT_TRUE(reg.WriteDword(kAddins + QStringLiteral(R"(\Other.Addin)"), QStringLiteral("LoadBehavior"), 2).ok());

    Registry again(reg.path());
    const QString shouted = QStringLiteral(R"(hkcu\SOFTWARE\microsoft\office\OUTLOOK\addins\mailvane.connect\)");
    EXPECT_EQ(*again.ReadDword(shouted, QStringLiteral("loadbehavior")), 3u);
    EXPECT_EQ(*again.ReadString(kAddin, QStringLiteral("FriendlyName")), QStringLiteral("Mailvane"));
    EXPECT_EQ(again.ReadDword(kAddin, QStringLiteral("FriendlyName")).error().kind, ErrorKind::Permanent);

    // Another spelling updates the same value, and the first spelling stays.
    ASSERT_TRUE(again.WriteDword(shouted, QStringLiteral("LOADBEHAVIOR"), 2).ok());
    EXPECT_EQ(*reg.ReadDword(kAddin, QStringLiteral("LoadBehavior")), 2u);
    EXPECT_EQ(AsSet(*reg.ValueNames(kAddin)), (QSet<QString>{"LoadBehavior", "FriendlyName"}));
    EXPECT_EQ(AsSet(*reg.SubKeys(kAddins)), (QSet<QString>{"Mailvane.Connect", "Other.Addin"}));

    ASSERT_TRUE(reg.WriteString(kAddin + QStringLiteral(R"(\Sub)"), QStringLiteral("x"), QStringLiteral("y")).ok());
    ASSERT_TRUE(reg.WriteString(kAddins, QStringLiteral("keep"), QStringLiteral("me")).ok());
    ASSERT_TRUE(reg.DeleteValue(kAddin, QStringLiteral("loadbehavior")).ok());
    EXPECT_EQ(reg.ReadDword(kAddin, QStringLiteral("LoadBehavior")).error().kind, ErrorKind::NotFound);
    EXPECT_EQ(reg.DeleteValue(kAddin, QStringLiteral("LoadBehavior")).error().kind, ErrorKind::NotFound);
    ASSERT_TRUE(reg.DeleteKey(kAddin).ok());
    EXPECT_FALSE(reg.KeyExists(kAddin + QStringLiteral(R"(\Sub)")));
    EXPECT_EQ(*reg.ReadString(kAddins, QStringLiteral("keep")), QStringLiteral("me"));
    EXPECT_EQ(reg.DeleteKey(kAddin).error().kind, ErrorKind::NotFound);
    EXPECT_FALSE(reg.WriteString(QStringLiteral(R"(\\)"), QStringLiteral("x"), QStringLiteral("y")).ok());
}

TEST_F(RegistryTest, NamesQSettingsWouldMisreadRoundTrip)
{
    const QString key = QStringLiteral(R"(HKEY_CURRENT_USER\Software\A/B %2F key)");
    const QStringList names{QString(), QStringLiteral("@"), QStringLiteral("a/b"), QStringLiteral("100%"),
                            QStringLiteral("back\\slash"), QStringLiteral("General")};
    for (const QString& name : names) ASSERT_TRUE(reg.WriteString(key, name, QStringLiteral("v:") + name).ok());
    for (const QString& name : names) EXPECT_EQ(*reg.ReadString(key, name), QStringLiteral("v:") + name);
    EXPECT_EQ(AsSet(*reg.ValueNames(key)), AsSet(names));
    EXPECT_EQ(*reg.SubKeys(QStringLiteral(R"(HKEY_CURRENT_USER\Software)")), QStringList{"A/B %2F key"});
    // Unescaped commas would make QSettings read a list.
    ASSERT_TRUE(reg.WriteString(key, QStringLiteral("list"), QStringLiteral("a, b,c")).ok());
    EXPECT_EQ(*reg.ReadString(key, QStringLiteral("list")), QStringLiteral("a, b,c"));
}

TEST(RegistryFile, UnwritableOrDamagedFileGivesAnErrorAndIsLeftAlone)
{
    QTemporaryDir dir;
    QFile blocker(dir.filePath(QStringLiteral("blocker")));
    ASSERT_TRUE(blocker.open(QIODevice::WriteOnly));
    const auto st = Registry(blocker.fileName() + QStringLiteral("/registry.ini")).WriteDword(kAddin, "LoadBehavior", 3);
    ASSERT_FALSE(st.ok());
    EXPECT_TRUE(st.error().message.contains(QStringLiteral("blocker/registry.ini")));

    const QByteArray damaged = "[HKEY_CURRENT_USER\nLoadBehavior=\"3\n";
    blocker.write(damaged);
    blocker.close();
    Registry reg(blocker.fileName());
    EXPECT_FALSE(reg.WriteDword(kAddin, QStringLiteral("LoadBehavior"), 3).ok());
    EXPECT_FALSE(reg.ReadDword(kAddin, QStringLiteral("LoadBehavior")).ok());
    ASSERT_TRUE(blocker.open(QIODevice::ReadOnly));
    EXPECT_EQ(blocker.readAll(), damaged);
}

}  // namespace
