#include "scan/scan_svg.h"

#include <algorithm>
#include <cmath>

namespace {

constexpr double kPi = 3.14159265358979323846;

std::string Escaped(const std::string& s) {
    std::string out;
    for (char ch : s) {
        const unsigned char b = static_cast<unsigned char>(ch);
        if (b == '<') {
            out += "&lt;";
        } else if (b == '>') {
            out += "&gt;";
        } else if (b == '&') {
            out += "&amp;";
        } else if (b == '"') {
            out += "&quot;";
        } else if (b < 0x20 || b > 0x7E) {
            out += '?';  // names in unknown encodings
        } else {
            out += static_cast<char>(b);
        }
    }
    return out;
}

MapPoint At(MapPoint c, double r, double turns) {
    const double a = 2 * kPi * turns;
    return {c.x + r * std::sin(a), c.y - r * std::cos(a)};
}

const char* StateName(SectorState s) {
    switch (s) {
        case SectorState::kGood:
            return "good";
        case SectorState::kDeleted:
            return "deleted";
        case SectorState::kCrcError:
            return "CRC error";
        default:
            return "no data";
    }
}

void Segment(std::string& out, MapPoint c, double rIn, double rOut, double a0, double a1,
             const TrackFacts& t, const SectorFacts& s) {
    const MapPoint o0 = At(c, rOut, a0), o1 = At(c, rOut, a1);
    const MapPoint i0 = At(c, rIn, a0), i1 = At(c, rIn, a1);
    const int large = a1 - a0 > 0.5 ? 1 : 0;
    const SectorState st = StateOf(s);
    AppendF(out,
            "<path class=\"sector\" data-c=\"%d\" data-h=\"%d\" data-r=\"%d\" fill=\"%s\" "
            "d=\"M%.2f %.2fA%.2f %.2f 0 %d 1 %.2f %.2fL%.2f %.2fA%.2f %.2f 0 %d 0 %.2f %.2fZ\">"
            "<title>%d.%d R%d (C%d H%d N%d): %s</title></path>\n",
            t.cylinder, t.head, s.r, StateColour(st), o0.x, o0.y, rOut, rOut, large, o1.x, o1.y,
            i1.x, i1.y, rIn, rIn, large, i0.x, i0.y, t.cylinder, t.head, s.r, s.c, s.h, s.n,
            StateName(st));
}

}  // namespace

const char* StateColour(SectorState s) {
    switch (s) {
        case SectorState::kGood:
            return "#2ca02c";
        case SectorState::kDeleted:
            return "#1f77b4";
        case SectorState::kCrcError:
            return "#d62728";
        default:
            return "#ff7f0e";
    }
}

MapLayout::MapLayout(const ScanReport& rep) {
    int lo = 83, hi = 0;
    bool h0 = false, h1 = false;
    for (const auto& t : rep.tracks) {
        lo = std::min(lo, t.cylinder);
        hi = std::max(hi, t.cylinder);
        (t.head ? h1 : h0) = true;
    }
    if (lo > hi) lo = hi = 0;
    firstCyl_ = lo;
    cylinders_ = hi - lo + 1;
    head1Only_ = h1 && !h0;
    discs_ = h0 && h1 ? 2 : 1;
    width_ = kDisc * discs_;
    height_ = kTop + kDisc + kLegend;
}

void MapLayout::Ring(const TrackFacts& t, MapPoint* centre, double* inner, double* outer) const {
    const int disc = t.head && !head1Only_ ? 1 : 0;
    *centre = {kDisc * disc + kDisc / 2.0, kTop + kDisc / 2.0};
    const double w = (kRadius - kHole) / cylinders_;
    *outer = kRadius - (t.cylinder - firstCyl_) * w;
    // A hairline between wide rings keeps neighbouring tracks apart.
    *inner = *outer - (w >= 4 ? w - 1 : w);
}

void MapLayout::SectorTurns(const TrackFacts& t, size_t i, double* a0, double* a1) const {
    const double len = std::max(t.encLen, 1);
    const SectorFacts& s = t.sectors[i];
    double start = s.idPos, end = s.endPos;
    if (s.status & SECT_NODAM) {
        // Only the ID field exists: reach towards the next ID, at most 1/24 turn.
        const int nextId = t.sectors[(i + 1) % t.sectors.size()].idPos;
        double gap = nextId - start;
        if (gap <= 0) gap += len;
        end = start + std::min(gap * 0.8, len / 24);
    } else if (end <= start) {
        end += len;  // crosses the index
    }
    *a0 = start / len;
    *a1 = end / len;
}

MapPoint MapLayout::SectorCentre(const TrackFacts& t, size_t i) const {
    MapPoint c;
    double rIn, rOut, a0, a1;
    Ring(t, &c, &rIn, &rOut);
    SectorTurns(t, i, &a0, &a1);
    return At(c, (rIn + rOut) / 2, (a0 + a1) / 2);
}

std::string ScanSvg(const ScanReport& rep) {
    const MapLayout map(rep);
    std::string out;
    AppendF(out,
            "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
            "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"%d\" height=\"%d\" "
            "viewBox=\"0 0 %d %d\" font-family=\"sans-serif\" font-size=\"14\">\n"
            "<rect width=\"100%%\" height=\"100%%\" fill=\"#ffffff\"/>\n",
            map.Width(), map.Height(), map.Width(), map.Height());
    AppendF(out,
            "<text x=\"10\" y=\"24\" font-size=\"16\">%s  %s, %d cylinders, %d heads, %s</text>\n",
            Escaped(rep.path).c_str(), DiskTypeName(rep.disk.type), rep.disk.cylinders,
            rep.disk.heads, rep.mode ? "MB8877" : "uPD765");

    bool labelled[2] = {false, false};
    for (const auto& t : rep.tracks) {
        MapPoint c;
        double rIn, rOut;
        map.Ring(t, &c, &rIn, &rOut);
        if (!labelled[t.head & 1]) {
            labelled[t.head & 1] = true;
            AppendF(out, "<text x=\"%.0f\" y=\"%.0f\" text-anchor=\"middle\">Head %d</text>\n", c.x,
                    c.y + 4, t.head);
        }
        const bool formatted = t.density != Density::kUnformatted;
        AppendF(out,
                "<circle class=\"%s\" data-c=\"%d\" data-h=\"%d\" cx=\"%.2f\" cy=\"%.2f\" "
                "r=\"%.2f\" fill=\"none\" stroke=\"%s\" stroke-width=\"%.2f\"/>\n",
                formatted ? "track" : "unformatted", t.cylinder, t.head, c.x, c.y, (rIn + rOut) / 2,
                formatted ? kGapColour : kUnformattedColour, rOut - rIn);
        for (size_t i = 0; i < t.sectors.size(); ++i) {
            double a0, a1;
            map.SectorTurns(t, i, &a0, &a1);
            Segment(out, c, rIn, rOut, a0, a1, t, t.sectors[i]);
        }
    }

    struct Key {
        const char* colour;
        const char* label;
    } const keys[] = {
        {StateColour(SectorState::kGood), "good"},
        {StateColour(SectorState::kDeleted), "deleted"},
        {StateColour(SectorState::kCrcError), "CRC error"},
        {StateColour(SectorState::kNoData), "no data"},
        {kUnformattedColour, "unformatted"},
        {kGapColour, "gap"},
    };
    int y = MapLayout::kTop + MapLayout::kDisc + 10;
    int x = 10;
    out += "<g class=\"legend\">\n";
    for (const auto& k : keys) {
        AppendF(out,
                "<rect x=\"%d\" y=\"%d\" width=\"18\" height=\"18\" fill=\"%s\" stroke=\"#000000\" "
                "stroke-width=\"0.5\"/><text x=\"%d\" y=\"%d\">%s</text>\n",
                x, y, k.colour, x + 24, y + 14, k.label);
        x += 130;
        if (x + 120 > map.Width()) {
            x = 10;
            y += 26;
        }
    }
    out += "</g>\n</svg>\n";
    return out;
}
