// The whole report as one JSON document (schema in the README).
#include <cstdio>

#include "scan/scan_report.h"

namespace {

// Names come from disk images: any byte may appear. Bytes above 0x7F are
// taken as Latin-1 so that the document is always valid UTF-8.
std::string Quoted(const std::string& s) {
    std::string out = "\"";
    for (char ch : s) {
        const unsigned char b = static_cast<unsigned char>(ch);
        if (b == '"' || b == '\\') {
            out += '\\';
            out += static_cast<char>(b);
        } else if (b < 0x20 || b > 0x7E) {
            char esc[8];
            std::snprintf(esc, sizeof(esc), "\\u%04x", b);
            out += esc;
        } else {
            out += static_cast<char>(b);
        }
    }
    return out + '"';
}

std::string NameList(const std::vector<const char*>& names) {
    std::string out = "[";
    for (size_t i = 0; i < names.size(); ++i) {
        if (i) out += ',';
        out += '"';
        out += names[i];
        out += '"';
    }
    out += ']';
    return out;
}

std::string Hex16(int v) {
    char buf[8];
    std::snprintf(buf, sizeof(buf), "\"%04X\"", v & 0xFFFF);
    return buf;
}

class Obj {
public:
    explicit Obj(std::string& out) : out_(out) { out_ += '{'; }
    ~Obj() { out_ += '}'; }
    Obj(const Obj&) = delete;
    Obj& operator=(const Obj&) = delete;
    void Raw(const char* key, const std::string& value) {
        out_ += first_ ? "\"" : ",\"";
        first_ = false;
        out_ += key;
        out_ += "\":";
        out_ += value;
    }
    void Int(const char* key, long long v) { Raw(key, std::to_string(v)); }
    void Bool(const char* key, bool v) { Raw(key, v ? "true" : "false"); }
    void Str(const char* key, const std::string& v) { Raw(key, Quoted(v)); }

private:
    std::string& out_;
    bool first_ = true;
};

void SectorJson(std::string& out, const SectorFacts& s, const TrackFacts& t) {
    Obj o(out);
    o.Int("mfm", s.mfm);
    o.Int("c", s.c);
    o.Int("h", s.h);
    o.Int("r", s.r);
    o.Int("n", s.n);
    o.Int("gap2", s.gap2);
    o.Int("length", s.length);
    o.Int("gap3", s.gap3);
    o.Int("status", s.status);
    o.Raw("statusNames", NameList(SectorStatusNames(s.status)));
    o.Raw("idCrc", Hex16(s.idCrc));
    o.Raw("dataCrc", Hex16(s.dataCrc));
    o.Int("idPos", s.idPos);
    o.Int("damPos", s.damPos);
    o.Int("dataPos", s.dataPos);
    o.Int("endPos", s.endPos);
    o.Int("dataCells", s.dataCells);
    o.Int("timeDev", s.timeDev);
    o.Str("flags", SectorFlagLetters(s, t.density));
}

void TrackJson(std::string& out, const TrackFacts& t) {
    Obj o(out);
    o.Int("cylinder", t.cylinder);
    o.Int("head", t.head);
    o.Str("density", DensityName(t.density));
    o.Int("recordBits", t.recordBits);
    o.Int("flags", t.flags);
    o.Raw("flagNames", NameList(TrackFlagNames(t.flags)));
    o.Int("iamPos", t.iamPos);
    o.Int("gap1", t.gap1);
    o.Int("gap4a", t.gap4a);
    o.Int("gap4b", t.gap4b);
    o.Int("encLen", t.encLen);
    o.Int("mfmCount", t.mfmCount);
    o.Int("fmCount", t.fmCount);
    {
        Obj u(out.append(",\"usual\":"));
        u.Int("c", t.usualC);
        u.Int("h", t.usualH);
        u.Int("n", t.usualN);
    }
    std::string missing = "[";
    for (size_t i = 0; i < t.missing.size(); ++i) {
        if (i) missing += ',';
        missing += std::to_string(t.missing[i]);
    }
    missing += ']';
    o.Raw("missing", missing);
    out += ",\"sectors\":[";
    for (size_t i = 0; i < t.sectors.size(); ++i) {
        out += i ? ",\n    " : "\n    ";
        SectorJson(out, t.sectors[i], t);
    }
    out += ']';
}

}  // namespace

std::string ScanJson(const ScanReport& rep) {
    std::string out;
    {
        Obj o(out);
        o.Str("file", rep.path);
        {
            Obj d(out.append(",\"disk\":"));
            d.Int("type", rep.disk.type);
            d.Str("typeName", DiskTypeName(rep.disk.type));
            d.Str("name", rep.disk.name);
            d.Int("cylinders", rep.disk.cylinders);
            d.Int("heads", rep.disk.heads);
            d.Int("rate", rep.disk.rate);
            d.Int("rpm", rep.disk.rpm);
            d.Bool("writeProtect", rep.disk.writeProtect);
        }
        o.Str("analyzeMode", rep.mode ? "mb8877" : "upd765");
        out += ",\"tracks\":[";
        for (size_t i = 0; i < rep.tracks.size(); ++i) {
            out += i ? ",\n  " : "\n  ";
            TrackJson(out, rep.tracks[i]);
        }
        out += "]";
        const ScanSummary& m = rep.summary;
        Obj s(out.append(",\n\"summary\":"));
        s.Int("tracks", m.tracks);
        s.Int("formatted", m.formatted);
        s.Int("unformatted", m.unformatted);
        s.Int("mfmTracks", m.mfmTracks);
        s.Int("fmTracks", m.fmTracks);
        s.Int("mixedTracks", m.mixedTracks);
        s.Int("sectors", m.sectors);
        s.Int("mfmSectors", m.mfmSectors);
        s.Int("fmSectors", m.fmSectors);
        s.Int("good", m.good);
        s.Int("bad", m.bad);
        s.Int("missing", m.missing);
        s.Int("idCrcErrors", m.idCrc);
        s.Int("dataCrcErrors", m.dataCrc);
        s.Int("noDataMark", m.noData);
        s.Int("deleted", m.deleted);
        s.Int("timingDeviations", m.timing);
    }
    return out + '\n';
}
