// The default listing: the converter's property block, one line per track and
// a summary.
#include "scan/scan_report.h"
#include "track/vsector.h"
#include "track/vtrack.h"

namespace {

// R, then the C/H/N values that differ from the track's usual ones, then flags.
std::string SectorToken(const TrackFacts& t, const SectorFacts& s) {
    std::string tok = std::to_string(s.r);
    std::string ids;
    auto differ = [&ids](char label, int v, int usual) {
        if (v == usual) return;
        if (!ids.empty()) ids += ',';
        ids += label;
        ids += std::to_string(v);
    };
    differ('C', s.c, t.usualC);
    differ('H', s.h, t.usualH);
    differ('N', s.n, t.usualN);
    if (!ids.empty()) tok += '[' + ids + ']';
    return tok + SectorFlagLetters(s, t.density);
}

void TrackLine(std::string& out, const TrackFacts& t) {
    AppendF(out, "%2d.%d  %-11s %3d", t.cylinder, t.head, DensityName(t.density),
            static_cast<int>(t.sectors.size()));
    if (!t.sectors.empty()) AppendF(out, "  C%d H%d N%d :", t.usualC, t.usualH, t.usualN);
    for (const auto& s : t.sectors) out += ' ' + SectorToken(t, s);
    if (!t.missing.empty()) {
        out += "  missing";
        for (int r : t.missing) out += ' ' + std::to_string(r);
    }
    std::string notes;
    auto note = [&notes](const char* text) {
        notes += notes.empty() ? text : std::string(", ") + text;
    };
    if (t.density != Density::kUnformatted && !(t.flags & TRK_INDEX)) note("no index mark");
    if (t.flags & TRK_OVERLAP) note("overlapping sectors");
    // The decoder's own flag also counts ID fields without data (their end is 0).
    for (const auto& s : t.sectors) {
        if (!(s.status & SECT_NODAM) && s.idPos > s.endPos) {
            note("sector crosses the index");
            break;
        }
    }
    if (t.flags & TRK_MORE_DAM) note("more data marks than IDs");
    if (!notes.empty()) out += "  [" + notes + ']';
    out += '\n';
}

}  // namespace

std::string ScanText(const ScanReport& rep) {
    std::string out;
    AppendF(out, "Input file         : %s\n", rep.path.c_str());
    out += PropertyBlock(rep.disk);
    out += '\n';
    AppendF(out, "Analyze mode       : %s\n\n", rep.mode ? "MB8877" : "uPD765");

    out += "Track Density     Sec  Usual IDs : Sectors in track order\n";
    // Runs of blank tracks (a disk's unused cylinders) take one line.
    const auto& tracks = rep.tracks;
    for (size_t i = 0; i < tracks.size();) {
        size_t j = i;
        while (j + 1 < tracks.size() && tracks[i].density == Density::kUnformatted &&
               tracks[j + 1].density == Density::kUnformatted)
            ++j;
        if (j == i) {
            TrackLine(out, tracks[i]);
        } else {
            AppendF(out, "%2d.%d .. %d.%d  unformatted (%d tracks)\n", tracks[i].cylinder,
                    tracks[i].head, tracks[j].cylinder, tracks[j].head,
                    static_cast<int>(j - i + 1));
        }
        i = j + 1;
    }
    out +=
        "Flags: i ID CRC error, d data CRC error, m no data mark, x deleted,\n"
        "       f FM sector on a mixed track, t timing deviation\n\n";

    const ScanSummary& m = rep.summary;
    AppendF(out, "Tracks             : %d scanned, %d formatted, %d unformatted\n", m.tracks,
            m.formatted, m.unformatted);
    AppendF(out, "Track densities    : %d MFM, %d FM, %d mixed\n", m.mfmTracks, m.fmTracks,
            m.mixedTracks);
    AppendF(out, "Sectors            : %d found (%d MFM, %d FM)\n", m.sectors, m.mfmSectors,
            m.fmSectors);
    AppendF(out, "Sectors good       : %d\n", m.good);
    AppendF(out, "Sectors bad        : %d (%d ID CRC, %d data CRC, %d no data mark)\n", m.bad,
            m.idCrc, m.dataCrc, m.noData);
    AppendF(out, "Sectors missing    : %d\n", m.missing);
    AppendF(out, "Sectors deleted    : %d\n", m.deleted);
    AppendF(out, "Timing deviations  : %d\n", m.timing);
    return out;
}
