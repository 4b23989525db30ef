// Replays every seed of the fuzz corpus through the fuzz entry, so the
// nasty inputs run in the normal suite with any compiler.

#include <QDir>
#include <QFile>

#include <gtest/gtest.h>

#include <cstdint>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

TEST(FuzzSeeds, EachParsesWithoutFault)
{
    const QDir corpus(QStringLiteral(MV_SOURCE_DIR "/tests/fuzz/corpus"));
    const QStringList seeds = corpus.entryList(QDir::Files, QDir::Name);
    EXPECT_GE(seeds.size(), 20);
    for (const QString& seed : seeds) {
        QFile file(corpus.filePath(seed));
        ASSERT_TRUE(file.open(QIODevice::ReadOnly)) << seed.toStdString();
        const QByteArray bytes = file.readAll();
        EXPECT_EQ(LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(bytes.constData()),
                                         static_cast<std::size_t>(bytes.size())), 0)
            << seed.toStdString();
    }
}
