// SPDX-License-Identifier: MIT
#include "desktop/pages/pages_loader.h"

#include "kit/support/log.h"

#include <QLoggingCategory>
#include <QStandardPaths>

#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>

namespace desktop::pages {

namespace {

constexpr kit::support::Logger kLog("browser");

std::filesystem::path writable(QStandardPaths::StandardLocation location)
{
    return QStandardPaths::writableLocation(location).toStdString();
}

// A message handler is a plain function, so the one it stands in front of has to live here.
QtMessageHandler gPreviousHandler = nullptr;

// The engine, loaded late on purpose so the idle app never maps it, says it should have been set
// up before the application object; those sentences would ask the person for what is our choice.
void withoutLateStartWarnings(QtMsgType type,
                              const QMessageLogContext& context,
                              const QString& text)
{
    if (text.startsWith(QLatin1String("Qt WebEngine seems to be initialized from a plugin"))
        || text.startsWith(QLatin1String("Attribute Qt::AA_ShareOpenGLContexts must be set"))) {
        return;
    }
    if (gPreviousHandler) {
        gPreviousHandler(type, context, text);
    } else {
        std::fprintf(stderr, "%s\n", qPrintable(text));
    }
}

// Filters the engine's messages while it loads and starts.
struct QuietEngineStart
{
    QuietEngineStart()
    {
        // Its start-up report of GL settings is for the engine's developers.
        QLoggingCategory::setFilterRules(QStringLiteral("qt.webenginecontext.info=false"));
        gPreviousHandler = qInstallMessageHandler(withoutLateStartWarnings);
    }
    ~QuietEngineStart() { qInstallMessageHandler(gPreviousHandler); }
    QuietEngineStart(const QuietEngineStart&) = delete;
    QuietEngineStart& operator=(const QuietEngineStart&) = delete;
};

// Adds a switch to those the engine reads at its start, after any the person set.
void addEngineSwitch(std::string_view name)
{
    constexpr const char* kVariable = "QTWEBENGINE_CHROMIUM_FLAGS";
    // Before the engine starts its threads, which read the environment.
    const char* set = std::getenv(kVariable); // NOLINT(concurrency-mt-unsafe)
    std::string switches = set ? set : "";
    if (switches.find(name) != std::string::npos) {
        return;
    }
    switches += switches.empty() ? "" : " ";
    switches += name;
    ::setenv(kVariable, switches.c_str(), 1); // NOLINT(concurrency-mt-unsafe)
}

} // namespace

ProfileRoots ProfileRoots::standard()
{
    return {writable(QStandardPaths::AppDataLocation) / "QtWebEngine",
            writable(QStandardPaths::CacheLocation) / "QtWebEngine"};
}

PagesLoader::PagesLoader(Host host, std::vector<std::filesystem::path> candidates)
    : m_host(std::move(host))
    , m_candidates(std::move(candidates))
{}

PagesLoader::~PagesLoader()
{
    // The module's code must stay mapped while its objects go; it is never unloaded.
    m_pages.reset();
}

std::vector<std::filesystem::path> PagesLoader::defaultCandidates()
{
    std::vector<std::filesystem::path> candidates;
    // Read on the main thread before any other thread could change the environment.
    // NOLINTNEXTLINE(concurrency-mt-unsafe)
    if (const char* chosen = std::getenv("VANTOREL_PAGES_MODULE"); chosen && *chosen) {
        candidates.emplace_back(chosen);
    }
    std::error_code error;
    const auto self = std::filesystem::read_symlink("/proc/self/exe", error);
    if (!error) {
        candidates.push_back(self.parent_path() / kModuleFileName);
        candidates.push_back(self.parent_path().parent_path() / VANTOREL_INSTALL_LIBDIR / "vantorel"
                             / kModuleFileName);
    }
    return candidates;
}

void PagesLoader::close()
{
    m_pages.reset();
    m_tried = false;
}

Pages* PagesLoader::load()
{
    if (m_pages || (m_tried && !m_library.isLoaded())) {
        return m_pages.get();
    }
    m_tried = true;
    const auto started = std::chrono::steady_clock::now();
    // The engine's sandbox refuses to run as root and takes the process down with it.
    if (::geteuid() == 0) {
        // Before the engine starts its threads, which read it.
        ::setenv("QTWEBENGINE_DISABLE_SANDBOX", "1", 0); // NOLINT(concurrency-mt-unsafe)
    }
    // The engine starts a second zygote for helpers that run without a sandbox, and it starts
    // none (its network service runs in our process): that zygote only took the processors from
    // the first page while it loaded, and 50 MiB. Pages keep their sandbox and their zygote.
    addEngineSwitch("--no-unsandboxed-zygote");
    if (m_library.isLoaded()) {
        if (auto make = reinterpret_cast<MakePages>(m_library.resolve(kMakePagesSymbol))) {
            m_pages.reset(make(&m_host));
            return m_pages.get();
        }
    }
    for (const auto& candidate : m_candidates) {
        std::error_code error;
        if (!std::filesystem::exists(candidate, error)) {
            continue;
        }
        m_library.setFileName(QString::fromStdString(candidate.string()));
        const QuietEngineStart quiet;
        if (!m_library.load()) {
            m_error =
                "The page module could not be loaded: " + m_library.errorString().toStdString();
            continue;
        }
        markStart(m_host.startMarks, "module loaded");
        auto make = reinterpret_cast<MakePages>(m_library.resolve(kMakePagesSymbol));
        if (!make) {
            m_error = "The page module " + candidate.string() + " is not one of this build.";
            continue;
        }
        m_pages.reset(make(&m_host));
        markStart(m_host.startMarks, "pages made");
        m_error.clear();
        const auto elapsed = std::chrono::duration_cast<std::chrono::milliseconds>(
            std::chrono::steady_clock::now() - started);
        kLog.info("web engine loaded in " + std::to_string(elapsed.count()) + " ms");
        return m_pages.get();
    }
    if (m_error.empty()) {
        m_error = "The page module is missing from this installation.";
    }
    kLog.error(m_error);
    return nullptr;
}

} // namespace desktop::pages
