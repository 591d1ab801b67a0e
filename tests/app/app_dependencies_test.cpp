// SPDX-License-Identifier: MIT
#include "app/app_dependencies.h"

#include "kit/library/fixtures.h"
#include "kit/support/run_loop.h"
#include "support/temp_dir.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <sys/stat.h>

#include <condition_variable>
#include <map>
#include <mutex>

using namespace app;
using namespace kit;
using ::testing::HasSubstr;
using testing_support::TempDir;

namespace {

// A person's machine in a temporary folder: a home, one installed file manager, no real files.
class Machine : public ::testing::Test
{
protected:
    Machine()
    {
        std::filesystem::create_directories(home());
        std::filesystem::create_directories(dataFolder() / "applications");
        testing_support::writeFile(
            dataFolder() / "applications" / "org.gnome.Nautilus.desktop",
            "[Desktop Entry]\nType=Application\nName=Files\nExec=nautilus\n");
    }

    std::filesystem::path home() const { return m_dir.path() / "home"; }
    std::filesystem::path dataFolder() const { return m_dir.path() / "share"; }
    std::filesystem::path socketPath() const { return m_dir.path() / "run" / "vantorel.sock"; }

    Environment environment(std::map<std::string, std::string> extra = {}) const
    {
        extra["HOME"] = home().string();
        return Environment{[extra](const char* name) -> std::optional<std::string> {
                               auto it = extra.find(name);
                               return it == extra.end() ? std::nullopt
                                                        : std::optional<std::string>(it->second);
                           },
                           4242,
                           m_dir.path() / "tmp"};
    }

    AppDependencies::Options options() const
    {
        std::filesystem::create_directories(m_dir.path() / "run");
        AppDependencies::Options options;
        options.environment = environment();
        options.supportDirectory = storage::SupportDirectory{m_dir.path() / "support", false};
        std::filesystem::create_directories(options.supportDirectory->url);
        options.settingsFile = m_dir.path() / "config" / "settings.json";
        options.socketPath = socketPath().string();
        options.dataFolders = std::vector<std::filesystem::path>{dataFolder()};
        return options;
    }

    // Opens a document and serves the main queue until the answer comes.
    std::optional<std::string> open(AppDependencies& dependencies,
                                    const std::filesystem::path& file)
    {
        std::optional<std::optional<std::string>> answer;
        dependencies.openDocument(
            file, [&](std::optional<std::string> failure) { answer = std::move(failure); });
        EXPECT_TRUE(m_loop.runUntil([&] { return answer.has_value(); }, std::chrono::seconds(10)));
        return answer.value_or("no answer");
    }

    support::RunLoop m_loop;
    TempDir m_dir;
};

// A file system that hangs every read until the test lets it go.
struct HungMount
{
    std::mutex mutex;
    std::condition_variable changed;
    bool released = false;
    int waiting = 0;
    std::string content;

    static AppDependencies::ReadFile reader(const std::shared_ptr<HungMount>& mount)
    {
        return [mount](const std::filesystem::path&,
                       size_t) -> std::variant<std::string, support::ReadError> {
            std::unique_lock lock(mount->mutex);
            ++mount->waiting;
            mount->changed.notify_all();
            mount->changed.wait(lock, [&] { return mount->released; });
            return mount->content;
        };
    }
    bool isWaiting()
    {
        std::lock_guard lock(mutex);
        return waiting > 0;
    }
    void release()
    {
        std::lock_guard lock(mutex);
        released = true;
        changed.notify_all();
    }
};

TEST_F(Machine, ATestRunKeepsToATemporaryFolderAndNeverStarts)
{
    std::filesystem::create_directories(m_dir.path() / "tmp");
    AppDependencies::Options options;
    options.environment = environment({{"VANTOREL_RUNNING_TESTS", "1"}});
    options.dataFolders = std::vector<std::filesystem::path>{dataFolder()};
    AppDependencies dependencies(m_loop, options);

    EXPECT_TRUE(dependencies.isRunningTests());
    EXPECT_EQ(dependencies.supportDirectory().url, m_dir.path() / "tmp" / "Vantorel-tests-4242");
    EXPECT_TRUE(dependencies.supportDirectory().isTemporary);
    EXPECT_FALSE(dependencies.seededStarterBar());
    EXPECT_TRUE(dependencies.libraryStore().library().shortcuts.empty());
    EXPECT_EQ(dependencies.toolSocket().path(),
              (m_dir.path() / "tmp" / "vantorel-tests.sock").string());

    dependencies.settings().setAssistantsEnabled(true);
    dependencies.start();
    EXPECT_FALSE(dependencies.toolSocket().isListening());
    std::filesystem::remove_all(dependencies.supportDirectory().url);
}

TEST_F(Machine, AFirstLaunchSeedsTheStarterBarOnceAndAsksForTheIntroductionAgain)
{
    size_t seededCount = 0;
    {
        AppDependencies dependencies(m_loop, options());
        dependencies.settings().setWelcomeShown(true);
        EXPECT_TRUE(dependencies.seededStarterBar());
        const auto& shortcuts = dependencies.libraryStore().library().shortcuts;
        seededCount = dependencies.libraryStore().library().allShortcuts().size();
        auto app = std::find_if(shortcuts.begin(), shortcuts.end(), [](const auto& s) {
            return s.target.kind() == library::Target::Kind::App;
        });
        ASSERT_NE(app, shortcuts.end());
        EXPECT_EQ(app->name, "Files");
        EXPECT_EQ(app->target.appTarget()->bundleID, "org.gnome.Nautilus");
    }
    AppDependencies again(m_loop, options());
    EXPECT_FALSE(again.seededStarterBar());
    EXPECT_EQ(again.libraryStore().library().allShortcuts().size(), seededCount);
    EXPECT_TRUE(again.settings().welcomeShown());
}

TEST_F(Machine, QuittingWritesWhatIsPending)
{
    AppDependencies dependencies(m_loop, options());
    dependencies.libraryStore().mutate(
        [](library::Library& library) { library.add(testing_support::webLink("Late")); });
    dependencies.terminate();
    auto file = dependencies.supportDirectory().file(dependencies.libraryStore().activeBar().file);
    EXPECT_THAT(testing_support::readFile(file), HasSubstr("Late"));
}

TEST_F(Machine, DocumentsAreOpenedOrRefusedInOneSentence)
{
    AppDependencies dependencies(m_loop, options());
    EXPECT_TRUE(AppDependencies::isDocument("Work.VANTOREL"));
    EXPECT_FALSE(AppDependencies::isDocument("work.json"));

    EXPECT_EQ(open(dependencies, m_dir.path() / "gone.vantorel"),
              "“gone.vantorel” could not be opened: there is no such file.");

    testing_support::writeFile(m_dir.file("broken.vantorel"), "{\"bars\": [");
    auto broken = open(dependencies, m_dir.file("broken.vantorel"));
    ASSERT_TRUE(broken);
    EXPECT_THAT(*broken, HasSubstr("“broken.vantorel” could not be opened: "));
    EXPECT_FALSE(dependencies.proposals().isPending());

    // Nothing named like a document may hang the app, swallow its memory, or answer in bytes
    // that cannot travel as JSON to the start that asked.
    ASSERT_EQ(::mkfifo(m_dir.file("pipe.vantorel").c_str(), 0600), 0);
    std::filesystem::create_symlink("/dev/zero", m_dir.file("zero.vantorel"));
    testing_support::writeFile(m_dir.file("bytes.vantorel"), "{\"title\": \"\xff\xfe\x1b[2K\"");
    const std::vector<std::pair<std::string, std::string>> refused{
        {"pipe.vantorel", "“pipe.vantorel” could not be opened: it is not a regular file."},
        {"zero.vantorel", "“zero.vantorel” could not be opened: it is not a regular file."},
    };
    for (const auto& [name, sentence] : refused) {
        EXPECT_EQ(open(dependencies, m_dir.file(name)), sentence);
    }
    auto bytes = open(dependencies, m_dir.file("bytes.vantorel"));
    ASSERT_TRUE(bytes);
    EXPECT_THAT(*bytes, HasSubstr("“bytes.vantorel” could not be opened: "));
    const nlohmann::json reply{{"error", *bytes}};
    EXPECT_NO_THROW((void)reply.dump());
    EXPECT_EQ(bytes->find('\x1b'), std::string::npos);

    auto document =
        proposal::Proposal::exportShortcut(testing_support::webLink("Shared"), {}, true);
    testing_support::writeFile(m_dir.file("shared.vantorel"), document.encoded());
    EXPECT_EQ(open(dependencies, m_dir.file("shared.vantorel")), std::nullopt);
    ASSERT_TRUE(dependencies.proposals().isPending());
    EXPECT_EQ(dependencies.proposals().fileName(), "shared.vantorel");
}

TEST_F(Machine, ADocumentOnAHungMountNeitherFreezesTheAppNorHoldsUpQuitting)
{
    auto mount = std::make_shared<HungMount>();
    mount->content =
        proposal::Proposal::exportShortcut(testing_support::webLink("Shared"), {}, true).encoded();
    auto options = this->options();
    options.readFile = HungMount::reader(mount);
    auto dependencies = std::make_unique<AppDependencies>(m_loop, std::move(options));

    std::optional<std::optional<std::string>> answer;
    dependencies->openDocument(m_dir.file("slow.vantorel"),
                               [&](std::optional<std::string> failure) { answer = failure; });
    ASSERT_TRUE(m_loop.runUntil([&] { return mount->isWaiting(); }, std::chrono::seconds(10)));
    bool served = false;
    m_loop.post([&] { served = true; });
    EXPECT_TRUE(m_loop.runUntil([&] { return served; }, std::chrono::seconds(10)));
    EXPECT_FALSE(answer);
    EXPECT_FALSE(dependencies->proposals().isPending());

    mount->release();
    ASSERT_TRUE(m_loop.runUntil([&] { return answer.has_value(); }, std::chrono::seconds(10)));
    EXPECT_EQ(*answer, std::nullopt);
    EXPECT_TRUE(dependencies->proposals().isPending());
    EXPECT_EQ(dependencies->proposals().fileName(), "slow.vantorel");

    // Quitting while a read hangs: it returns at once and the late document reaches nothing.
    auto stuck = std::make_shared<HungMount>();
    stuck->content = "{}";
    options = this->options();
    options.readFile = HungMount::reader(stuck);
    dependencies = std::make_unique<AppDependencies>(m_loop, std::move(options));
    bool called = false;
    dependencies->openDocument(m_dir.file("stuck.vantorel"), [&](auto) { called = true; });
    ASSERT_TRUE(m_loop.runUntil([&] { return stuck->isWaiting(); }, std::chrono::seconds(10)));
    // Reads that never end must not pile up threads without bound.
    for (size_t i = 1; i < support::BlockingWork::kMostRunning; ++i) {
        dependencies->openDocument(m_dir.file("more.vantorel"), [&](auto) { called = true; });
    }
    std::optional<std::string> refused;
    dependencies->openDocument(m_dir.file("one too many.vantorel"),
                               [&](std::optional<std::string> failure) { refused = failure; });
    EXPECT_EQ(refused,
              "“one too many.vantorel” could not be opened: other documents are still being "
              "read; try again later.");
    dependencies.reset();
    std::weak_ptr<HungMount> gone = stuck;
    stuck->release();
    stuck.reset();
    // Once the read's thread has let go of the mount, anything it would post is already queued.
    ASSERT_TRUE(m_loop.runUntil([&] { return gone.expired(); }, std::chrono::seconds(10)));
    m_loop.runFor(std::chrono::milliseconds(0));
    EXPECT_FALSE(called);
}

} // namespace
