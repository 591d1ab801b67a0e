// SPDX-License-Identifier: MIT
// What kept site icons add to start-up, in the app's own thread: opening the kept-icon index,
// reading each site's picture once and drawing 20 icons at every tray size, against drawing the
// same 20 as monograms with nothing kept. The difference is the figure held to 10 ms;
// bench/site_icons_start.sh measures the whole start in a real tray.
// Usage: site_icons_bench   (QT_QPA_PLATFORM=offscreen is set when unset)
#include "desktop/tray/site_icons.h"

#include "desktop/tray/qt_icon_renderer.h"
#include "kit/library/fixtures.h"
#include "support/temp_dir.h"

#include <benchmark/benchmark.h>

#include <QApplication>
#include <QPainter>

#include <cstdlib>

namespace {

constexpr int kSites = 20;
constexpr std::array<int, 6> kTraySizes{16, 22, 24, 32, 48, 64};

std::string site(int i)
{
    return "https://site" + std::to_string(i) + ".example/";
}

// The folder as the app leaves it after fetching: 128-pixel PNGs and their index.
void keep(const std::filesystem::path& folder)
{
    kit::web::KeptIconIndex index;
    for (int i = 1; i <= kSites; ++i) {
        const std::string host = "site" + std::to_string(i) + ".example";
        const int side = desktop::SiteIcons::kKeptSide;
        QImage image(side, side, QImage::Format_ARGB32_Premultiplied);
        image.fill(Qt::transparent);
        QPainter painter(&image);
        painter.setRenderHint(QPainter::Antialiasing);
        painter.setBrush(QColor::fromHsv(i * 17 % 360, 200, 200));
        painter.drawEllipse(4, 4, side - 8, side - 8);
        painter.end();
        std::filesystem::create_directories(folder);
        image.save(QString::fromStdString((folder / kit::web::keptFileName(host)).string()));
        index.sites[host] = {kit::web::keptFileName(host), 1'800'000'000, site(i) + "favicon.ico"};
    }
    testing_support::writeFile(folder / kit::web::kKeptIconIndexFile,
                               kit::web::encodeKeptIcons(index));
}

void drawAll(benchmark::State& state, bool kept)
{
    testing_support::TempDir root;
    const auto folder = root.path() / kit::web::kKeptIconFolder;
    if (kept) {
        keep(folder);
    }
    std::vector<kit::menubar::Glyph> glyphs;
    desktop::QtIconRenderer names;
    for (int i = 1; i <= kSites; ++i) {
        glyphs.push_back(
            names.glyph(testing_support::webLink("Site " + std::to_string(i), site(i)), 18));
    }
    for (auto _ : state) {
        desktop::SiteIcons icons({folder, 64, std::chrono::seconds(10), {}});
        desktop::QtIconRenderer renderer(
            [&icons](const std::string& address) { return icons.image(address); });
        for (const auto& glyph : glyphs) {
            for (int side : kTraySizes) {
                benchmark::DoNotOptimize(
                    renderer.draw(glyph, side, kit::menubar::Appearance::Dark));
            }
        }
    }
}

void BM_TwentyKeptIcons(benchmark::State& state)
{
    drawAll(state, true);
}
BENCHMARK(BM_TwentyKeptIcons)->Unit(benchmark::kMillisecond);

void BM_TwentyMonograms(benchmark::State& state)
{
    drawAll(state, false);
}
BENCHMARK(BM_TwentyMonograms)->Unit(benchmark::kMillisecond);

} // namespace

int main(int argc, char** argv)
{
    setenv("QT_QPA_PLATFORM", "offscreen", 0);
    QApplication app(argc, argv);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
