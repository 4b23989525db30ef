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

TEST(ProgIdRegistry, CreatesOnlyWhatIsRegisteredForThatTypeWithoutRegardToCase)
{
    mv::ProgIdRegistry registry;
    registry.Register<Utils>(QStringLiteral("SQSafeLib.MAPIUtils"), [] { return std::make_unique<Utils>(); });
    registry.Register<Utils>(QStringLiteral("SQSafeLib.Broken"), [] { return std::unique_ptr<Utils>(); });
    registry.Register<Utils>(QStringLiteral("SQSafeLib.Empty"), mv::ProgIdRegistry::Factory<Utils>());
    const std::pair<const char*, bool> cases[] = {
        {"SQSafeLib.MAPIUtils", true}, {"sqsafelib.mapiutils", true}, {"SQSAFELIB.MAPIUTILS", true},
        {"SQSafeLib.MAPITable", false},  // never registered
        {"SQSafeLib.Broken", false},     // the factory fails
        {"SQSafeLib.Empty", false},      // no factory at all
        {"", false},
    };
    for (const auto& [progId, creates] : cases)
        EXPECT_EQ(registry.Create<Utils>(QString::fromLatin1(progId)) != nullptr, creates) << progId;
    // Registered for Utils, asked for as another type.
    EXPECT_EQ(registry.Create<OtherUtils>(QStringLiteral("SQSafeLib.MAPIUtils")), nullptr);

    // Registering again replaces; unregistering removes.
    registry.Register<Utils>(QStringLiteral("sqsafelib.MAPIUTILS"), [] { return std::make_unique<OtherUtils>(); });
    EXPECT_EQ(registry.Create<Utils>(QStringLiteral("SQSafeLib.MAPIUtils"))->Id(), 2);
    EXPECT_TRUE(registry.Contains(QStringLiteral("sqsafelib.mapiUtils")));
    registry.Unregister(QStringLiteral("sqsafelib.mapiutils"));
    EXPECT_FALSE(registry.Contains(QStringLiteral("SQSafeLib.MAPIUtils")));
}

}  // namespace
