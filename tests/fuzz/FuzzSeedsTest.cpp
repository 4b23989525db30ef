// Replays every seed of the fuzz corpus through the fuzz entry, so the
// nasty inputs run in the normal suite with any compiler.

#include <QDir>
#include <QFile>

#include <gtest/gtest.h>

#include <cstdint>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace {

QStringList Seeds()
{
    return QDir(QStringLiteral(MV_SOURCE_DIR "/tests/fuzz/corpus")).entryList(QDir::Files, QDir::Name);
}

class FuzzSeed : public ::testing::TestWithParam<QString> {};

TEST_P(FuzzSeed, ParsesWithoutFault)
{
    QFile file(QStringLiteral(MV_SOURCE_DIR "/tests/fuzz/corpus/") + GetParam());
    ASSERT_TRUE(file.open(QIODevice::ReadOnly));
    const QByteArray bytes = file.readAll();
    EXPECT_EQ(LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(bytes.constData()),
                                     static_cast<std::size_t>(bytes.size())),
              0);
}

TEST(FuzzCorpus, HasSeeds) { EXPECT_GE(Seeds().size(), 20); }

INSTANTIATE_TEST_SUITE_P(Seeds, FuzzSeed, ::testing::ValuesIn(Seeds()), [](const auto& info) {
    QString name = info.param;
    for (QChar& c : name)
        if (!c.isLetterOrNumber()) c = '_';
    return name.toStdString();
});

}  // namespace
