#include "platform/common/ProgIdRegistry.h"

#include <gtest/gtest.h>

namespace {

struct Utils {
    virtual ~Utils() = default;
    virtual int Id() const { return 1; }
};
struct OtherUtils : Utils {
    int Id() const override { return 2; }
};
struct Table {
    virtual ~Table() = default;
};

TEST(ProgIdRegistry, CreatesOnlyWhatIsRegisteredForThatType)
{
    mv::ProgIdRegistry registry;
    registry.Register<Utils>(QStringLiteral("SQSafeLib.MAPIUtils"), [] { return std::make_unique<Utils>(); });
    registry.Register<Utils>(QStringLiteral("SQSafeLib.Broken"), [] { return std::unique_ptr<Utils>(); });
    registry.Register<Utils>(QStringLiteral("SQSafeLib.Empty"), mv::ProgIdRegistry::Factory<Utils>());

    struct Case {
        const char* progId;
        bool creates;
    };
    const Case cases[] = {
        {"SQSafeLib.MAPIUtils", true},
        {"sqsafelib.mapiutils", true},  // ProgIDs ignore case
        {"SQSAFELIB.MAPIUTILS", true},
        {"SQSafeLib.MAPITable", false},  // never registered
        {"SQSafeLib.Broken", false},     // the factory fails
        {"SQSafeLib.Empty", false},      // no factory at all
        {"", false},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.progId);
        const auto made = registry.Create<Utils>(QString::fromLatin1(c.progId));
        EXPECT_EQ(made != nullptr, c.creates);
    }
    // Registered for Utils, asked for as another type.
    EXPECT_EQ(registry.Create<Table>(QStringLiteral("SQSafeLib.MAPIUtils")), nullptr);
    EXPECT_EQ(registry.Create<OtherUtils>(QStringLiteral("SQSafeLib.MAPIUtils")), nullptr);
}

TEST(ProgIdRegistry, ReRegisteringReplacesAndUnregisterRemoves)
{
    mv::ProgIdRegistry registry;
    registry.Register<Utils>(QStringLiteral("Mailvane.Connect"), [] { return std::make_unique<Utils>(); });
    registry.Register<Utils>(QStringLiteral("MAILVANE.connect"),
                             [] { return std::make_unique<OtherUtils>(); });
    auto made = registry.Create<Utils>(QStringLiteral("Mailvane.Connect"));
    ASSERT_NE(made, nullptr);
    EXPECT_EQ(made->Id(), 2);
    EXPECT_TRUE(registry.Contains(QStringLiteral("mailvane.CONNECT")));

    registry.Unregister(QStringLiteral("mailvane.connect"));
    EXPECT_FALSE(registry.Contains(QStringLiteral("Mailvane.Connect")));
    EXPECT_EQ(registry.Create<Utils>(QStringLiteral("Mailvane.Connect")), nullptr);
}

}  // namespace
