// SPDX-License-Identifier: MIT
#include "desktop/qsettings_store.h"

#include "support/temp_dir.h"

#include <gtest/gtest.h>

#include <QSettings>
#include <QString>

#include <unistd.h>

#include <algorithm>
#include <vector>

namespace desktop {
namespace {

using kit::settings::Value;

QString path(const std::filesystem::path& file)
{
    return QString::fromStdString(file.string());
}

class QSettingsStoreTest : public ::testing::Test
{
protected:
    testing_support::TempDir m_dir;
    QString m_file = path(m_dir.file("Vantorel.conf"));
};

struct RoundTrip
{
    const char* name;
    Value value;
};

class QSettingsRoundTripTest : public QSettingsStoreTest,
                               public ::testing::WithParamInterface<RoundTrip>
{};

// Read back both by the store that wrote it and by a store started afresh on the same file, as
// the next launch reads it.
TEST_P(QSettingsRoundTripTest, KeepsTheValueAndItsTypeAcrossARestart)
{
    const Value value = GetParam().value;
    {
        QSettingsStore store(m_file);
        store.setValue("key", value);
        EXPECT_EQ(store.value("key"), value);
    }
    QSettingsStore reopened(m_file);
    EXPECT_EQ(reopened.value("key"), value);
}

INSTANTIATE_TEST_SUITE_P(
    Values,
    QSettingsRoundTripTest,
    ::testing::Values(RoundTrip{"True", Value(true)},
                      RoundTrip{"False", Value(false)},
                      RoundTrip{"Whole", Value(std::int64_t{1} << 20)},
                      RoundTrip{"Negative", Value(std::int64_t{-42})},
                      RoundTrip{"Large", Value(std::int64_t{9007199254740993})},
                      RoundTrip{"Modifiers", Value(std::int64_t{0x100000 | 0x20000})},
                      RoundTrip{"Fraction", Value(1.25)},
                      RoundTrip{"Text", Value(std::string("dark"))},
                      RoundTrip{"TextWithSeparators", Value(std::string("a, b; c = d"))},
                      RoundTrip{"TextWithAt", Value(std::string("@Variant(x)"))},
                      RoundTrip{"NonAscii",
                                Value(std::string("Caf\xC3\xA9 \xE2\x80\x9Cquoted\xE2\x80\x9D"))},
                      RoundTrip{"Empty", Value(std::string())},
                      RoundTrip{"Bytes", Value(kit::support::Bytes{0x00, 0xFF, 0x0A, 0x29, 0x40})},
                      RoundTrip{"NoBytes", Value(kit::support::Bytes{})}),
    [](const auto& info) { return std::string(info.param.name); });

TEST_F(QSettingsStoreTest, ObserversHearOfChangesButNotOfTheSameValueAgain)
{
    QSettingsStore store(m_file);
    std::vector<std::string> heard;
    store.observe([&](const std::string& key) { heard.push_back(key); });
    store.setValue("blocksAds", true);
    store.setValue("blocksAds", true);
    store.setValue("blocksAds", false);
    store.remove("blocksAds");
    store.remove("blocksAds");
    EXPECT_EQ(heard, (std::vector<std::string>{"blocksAds", "blocksAds", "blocksAds"}));
    EXPECT_EQ(store.value("blocksAds"), std::nullopt);
}

TEST_F(QSettingsStoreTest, ReloadTellsOfEveryKeyAnotherProcessChangedAndNoOther)
{
    QSettingsStore store(m_file);
    store.setValue("kept", std::string("same"));
    store.setValue("changed", std::int64_t{1});
    store.setValue("removed", true);
    std::vector<std::string> heard;
    store.observe([&](const std::string& key) { heard.push_back(key); });
    {
        // Another process: a settings command, or a second instance.
        QSettings other(m_file, QSettings::IniFormat);
        other.setValue(QStringLiteral("changed"), 2);
        other.remove(QStringLiteral("removed"));
        other.setValue(QStringLiteral("added"), QStringLiteral("x"));
    }
    store.reload();
    std::sort(heard.begin(), heard.end());
    EXPECT_EQ(heard, (std::vector<std::string>{"added", "changed", "removed"}));
    EXPECT_EQ(store.value("changed"), Value(std::int64_t{2}));
    EXPECT_EQ(store.value("removed"), std::nullopt);
    heard.clear();
    store.reload();
    EXPECT_TRUE(heard.empty());
}

TEST_F(QSettingsStoreTest, EachChangeIsOnDiskBeforeSetValueReturns)
{
    QSettingsStore store(m_file);
    store.setValue("welcomeShown", true);
    QSettings reader(m_file, QSettings::IniFormat);
    EXPECT_EQ(reader.value(QStringLiteral("welcomeShown")).toString(), QStringLiteral("true"));
}

TEST_F(QSettingsStoreTest, ValuesOfShapesItDoesNotKnowAreNotReadButSurvive)
{
    {
        QSettings other(m_file, QSettings::IniFormat);
        other.setValue(QStringLiteral("list"),
                       QStringList{QStringLiteral("a"), QStringLiteral("b")});
    }
    QSettingsStore store(m_file);
    EXPECT_EQ(store.value("list"), std::nullopt);
    store.setValue("other", std::int64_t{3});
    QSettings reader(m_file, QSettings::IniFormat);
    EXPECT_EQ(reader.value(QStringLiteral("list")).toStringList().size(), 2);
}

TEST_F(QSettingsStoreTest, AFileThatCannotBeWrittenIsReportedAndTheValueKeptInMemory)
{
    // A folder where the file should be: no rights make writing it possible, not even root's.
    const auto file = m_dir.file("blocked.conf");
    std::filesystem::create_directories(file);
    QSettingsStore store(path(file));
    store.setValue("blocksAds", true);
    ASSERT_TRUE(store.error().has_value());
    EXPECT_NE(store.error()->find("blocked.conf\u201D"), std::string::npos) << *store.error();
    EXPECT_EQ(store.value("blocksAds"), Value(true));

    std::filesystem::remove(file);
    store.setValue("blocksAds", false);
    EXPECT_EQ(store.error(), std::nullopt);
    EXPECT_EQ(QSettingsStore(path(file)).value("blocksAds"), Value(false));
}

TEST(QSettingsStoreDefaultTest, LivesInTheUsersConfigFolderUnderVantorel)
{
    QSettingsStore store;
    EXPECT_TRUE(store.fileName().endsWith(QStringLiteral("/Vantorel/Vantorel.conf")))
        << store.fileName().toStdString();
    EXPECT_TRUE(store.fileName().startsWith(QString::fromLocal8Bit(qgetenv("XDG_CONFIG_HOME"))));
}

} // namespace
} // namespace desktop
