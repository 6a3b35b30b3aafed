// The disk picture: one segment per sector in the colour of its state, checked
// in the SVG text and, where a browser is installed, in its rendering.
#include <gtest/gtest.h>
#include <stdlib.h>

#include <map>
#include <regex>

#include "driver/scan_images.h"
#include "driver/scan_svg.h"
#ifdef ZEBKIT_HAVE_ZLIB
#include <zlib.h>
#endif

using namespace scantest;

namespace {

constexpr uint32_t kGreen = 0x2ca02c, kBlue = 0x1f77b4, kRed = 0xd62728, kOrange = 0xff7f0e;

// Sectors of the defect disk that are not good, by cylinder, head and R.
uint32_t WantColour(int c, int h, int r) {
    static const std::map<std::tuple<int, int, int>, uint32_t> odd = {{{1, 0, 2}, kRed},
                                                                      {{1, 0, 3}, kRed},
                                                                      {{1, 0, 4}, kOrange},
                                                                      {{1, 0, 5}, kBlue},
                                                                      {{1, 1, 3}, kBlue}};
    auto it = odd.find({c, h, r});
    return it == odd.end() ? kGreen : it->second;
}

void MakeMap(const std::string& svg) {
    ZEBDisk d;
    BuildDefectDisk(d);
    ASSERT_TRUE(d.Save(Path("scan_map.zeb"), 1));
    ScanRun r = Zebscan("--tracks 0-2 --map " + svg + " scan_map.zeb", "map");
    ASSERT_EQ(r.status, 0) << r.err;
}

TEST(ScanSvg, OneSegmentPerSectorInItsStateColour) {
    MakeMap("scan_map.svg");
    const std::string svg = Slurp("scan_map.svg");
    static const std::regex seg(
        R"re(<path class="sector" data-c="(\d+)" data-h="(\d+)" data-r="(\d+)" fill="#([0-9a-f]{6})")re");
    std::map<std::pair<int, int>, int> count;
    for (auto it = std::sregex_iterator(svg.begin(), svg.end(), seg); it != std::sregex_iterator();
         ++it) {
        const int c = std::stoi((*it)[1]), h = std::stoi((*it)[2]), r = std::stoi((*it)[3]);
        ++count[{c, h}];
        EXPECT_EQ(std::stoul((*it)[4], nullptr, 16), WantColour(c, h, r))
            << c << "." << h << " R" << r;
    }
    const std::map<std::pair<int, int>, int> want = {
        {{0, 0}, 9}, {{1, 0}, 8}, {{1, 1}, 9}, {{2, 0}, 9}, {{2, 1}, 9}};
    EXPECT_EQ(count, want);
    EXPECT_NE(svg.find(R"(<circle class="unformatted" data-c="0" data-h="1")"), std::string::npos);
    for (const char* label :
         {">good<", ">deleted<", ">CRC error<", ">no data<", ">unformatted<", ">gap<"})
        EXPECT_NE(svg.find(label), std::string::npos) << label;
    EXPECT_EQ(svg.substr(svg.size() - 7), "</svg>\n");
}

#ifdef ZEBKIT_HAVE_ZLIB
// An 8-bit RGB or RGBA, non-interlaced PNG, as browsers write screenshots.
struct Image {
    int width = 0, height = 0, channels = 0;
    std::vector<uint8_t> pixels;
    uint32_t At(int x, int y) const {
        const size_t p =
            (static_cast<size_t>(y) * static_cast<size_t>(width) + static_cast<size_t>(x)) *
            static_cast<size_t>(channels);
        return uint32_t{pixels[p]} << 16 | uint32_t{pixels[p + 1]} << 8 | pixels[p + 2];
    }
};

uint32_t Be32(const std::string& s, size_t at) {
    return uint32_t{static_cast<uint8_t>(s[at])} << 24 |
           uint32_t{static_cast<uint8_t>(s[at + 1])} << 16 |
           uint32_t{static_cast<uint8_t>(s[at + 2])} << 8 | static_cast<uint8_t>(s[at + 3]);
}

bool DecodePng(const std::string& png, Image* img) {
    if (png.size() < 33 || png.compare(0, 8, "\x89PNG\r\n\x1a\n") != 0) return false;
    std::string z;
    for (size_t at = 8; at + 12 <= png.size();) {
        const size_t len = Be32(png, at);
        if (len > png.size() - at - 12) return false;
        const std::string type = png.substr(at + 4, 4);
        if (type == "IHDR") {
            img->width = static_cast<int>(Be32(png, at + 8));
            img->height = static_cast<int>(Be32(png, at + 12));
            const int depth = static_cast<uint8_t>(png[at + 16]),
                      colour = static_cast<uint8_t>(png[at + 17]);
            if (depth != 8 || (colour != 2 && colour != 6) || png[at + 20] != 0) return false;
            img->channels = colour == 6 ? 4 : 3;
        } else if (type == "IDAT") {
            z += png.substr(at + 8, len);
        }
        at += len + 12;
    }
    if (img->width <= 0 || img->height <= 0 || img->width > 8192 || img->height > 8192)
        return false;
    const size_t stride = static_cast<size_t>(img->width) * static_cast<size_t>(img->channels);
    std::vector<uint8_t> raw((stride + 1) * static_cast<size_t>(img->height));
    uLongf rawLen = raw.size();
    if (uncompress(raw.data(), &rawLen, reinterpret_cast<const Bytef*>(z.data()), z.size()) !=
            Z_OK ||
        rawLen != raw.size())
        return false;
    img->pixels.assign(stride * static_cast<size_t>(img->height), 0);
    const size_t bpp = static_cast<size_t>(img->channels);
    for (size_t y = 0; y < static_cast<size_t>(img->height); ++y) {
        const uint8_t filter = raw[y * (stride + 1)];
        const uint8_t* in = &raw[y * (stride + 1) + 1];
        uint8_t* out = &img->pixels[y * stride];
        if (filter > 4) return false;
        for (size_t i = 0; i < stride; ++i) {
            const int a = i >= bpp ? out[i - bpp] : 0, b = y ? out[i - stride] : 0,
                      c = y && i >= bpp ? out[i - stride - bpp] : 0, p = a + b - c;
            const int paeth =
                std::abs(p - a) <= std::abs(p - b) && std::abs(p - a) <= std::abs(p - c) ? a
                : std::abs(p - b) <= std::abs(p - c)                                     ? b
                                                                                         : c;
            const int pred[5] = {0, a, b, (a + b) / 2, paeth};
            out[i] = static_cast<uint8_t>(in[i] + pred[filter]);
        }
    }
    return true;
}
#endif

bool Near(uint32_t got, uint32_t want) {
    for (int s = 0; s < 24; s += 8)
        if (std::abs(static_cast<int>((got >> s) & 0xFF) - static_cast<int>((want >> s) & 0xFF)) >
            6)
            return false;
    return true;
}

TEST(ScanSvg, BrowserDrawsEachSectorInItsColour) {
#ifndef ZEBKIT_HAVE_ZLIB
    GTEST_SKIP() << "zlib is not available to read the browser's PNG screenshot";
#else
    std::string browser;
    for (const char* name : {"chromium", "chromium-browser"}) {
        if (std::system(("command -v " + std::string(name) + " >/dev/null 2>&1").c_str()) == 0) {
            browser = name;
            break;
        }
    }
    if (browser.empty())
        GTEST_SKIP() << "chromium is not installed (Debian package chromium): picture not rendered";

    MakeMap("scan_render.svg");
    char profile[] = "scan_profile_XXXXXX";
    ASSERT_NE(mkdtemp(profile), nullptr);
    char* cwd = getcwd(nullptr, 0);
    ASSERT_NE(cwd, nullptr);
    const std::string dir = cwd;
    free(cwd);

    ScanOptions opt;
    opt.lastCyl = 2;
    ZEBDisk d;
    ASSERT_TRUE(LoadScanImage("scan_map.zeb", 1, &d));
    const ScanReport rep = BuildScanReport(d, opt, nullptr);
    const MapLayout map(rep);
    std::remove("scan_render.png");
    const std::string cmd =
        "timeout 120 " + browser +
        " --headless --no-sandbox --disable-gpu --disable-quic --no-first-run"
        " --disable-background-networking --disable-component-update --disable-sync"
        " --hide-scrollbars --force-device-scale-factor=1 --user-data-dir=" +
        dir + "/" + profile + " --screenshot=" + dir +
        "/scan_render.png --window-size=" + std::to_string(map.Width()) + "," +
        std::to_string(map.Height()) + " file://" + dir + "/scan_render.svg >scan_render.log 2>&1";
    ASSERT_EQ(std::system(cmd.c_str()), 0) << Slurp("scan_render.log");
    std::system((std::string("rm -rf ") + profile).c_str());

    Image img;
    ASSERT_TRUE(DecodePng(Slurp("scan_render.png"), &img));
    ASSERT_EQ(img.width, map.Width());
    ASSERT_EQ(img.height, map.Height());
    int checked = 0;
    for (const auto& t : rep.tracks) {
        for (size_t i = 0; i < t.sectors.size(); ++i) {
            const MapPoint p = map.SectorCentre(t, i);
            const uint32_t got = img.At(static_cast<int>(p.x), static_cast<int>(p.y));
            EXPECT_TRUE(Near(got, WantColour(t.cylinder, t.head, t.sectors[i].r)))
                << t.cylinder << "." << t.head << " R" << t.sectors[i].r << " got " << std::hex
                << got;
            ++checked;
        }
    }
    EXPECT_EQ(checked, 44);
#endif
}

}  // namespace
