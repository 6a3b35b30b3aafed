#include "zebdisk/revmerge.h"

#include <cstdlib>
#include <utility>

namespace {

constexpr uint8_t kBad = SECT_IDCRC | SECT_DATACRC | SECT_NODAM;

bool Good(const VSector* s) {
    return !(s->status & kBad);
}
bool SameId(const VSector* a, const VSector* b) {
    return a->mfm == b->mfm && a->idC == b->idC && a->idH == b->idH && a->idR == b->idR &&
           a->idN == b->idN;
}

// Takes over what the good sector g read: its ID, data and status. Positions
// and gaps stay those of the kept revolution.
void TakeOver(VSector* s, const VSector* g) {
    s->idC = g->idC, s->idH = g->idH, s->idR = g->idR, s->idN = g->idN;
    s->idCrc[0] = g->idCrc[0], s->idCrc[1] = g->idCrc[1];
    s->dataCrc[0] = g->dataCrc[0], s->dataCrc[1] = g->dataCrc[1];
    s->status = g->status;
    s->SetData(g->data, g->length);
    s->length = g->length;
}

VSector* Copy(const VSector* g) {
    auto* s = new VSector;
    s->mfm = g->mfm;
    s->gap2 = g->gap2, s->gap3 = g->gap3;
    s->idPos = g->idPos, s->damPos = g->damPos, s->dataPos = g->dataPos, s->endPos = g->endPos;
    s->dataCells = g->dataCells;
    TakeOver(s, g);
    return s;
}

}  // namespace

int MergeRevolutions(VTrack& t, const std::vector<CellRevolution>& others, int mode) {
    int mended = 0;
    for (const CellRevolution& rev : others) {
        bool anyBad = !t.sectors;
        for (const VSector* s = t.sectors; s && !anyBad; s = s->next) anyBad = !Good(s);
        if (!anyBad || rev.bits <= 0 || rev.cells.size() < static_cast<size_t>(rev.bits + 7) / 8)
            continue;

        VTrack o;
        o.Decode(0, const_cast<uint8_t*>(rev.cells.data()), rev.bits, mode);
        // Revolutions start at the same index, so a sector sits at nearly the
        // same cell in each: within a hundredth of the track.
        const int near = rev.bits / 100;
        for (const VSector* g = o.sectors; g; g = g->next) {
            if (!Good(g)) continue;
            VSector* same = nullptr;    // the sector by its ID, read without an ID error
            VSector* placed = nullptr;  // or one at its place whose ID did not read
            for (VSector* s = t.sectors; s; s = s->next) {
                if (!(s->status & SECT_IDCRC) && SameId(s, g)) {
                    same = s;
                    break;
                }
                if ((s->status & SECT_IDCRC) && s->mfm == g->mfm &&
                    std::abs(s->idPos - g->idPos) <= near && !placed)
                    placed = s;
            }
            VSector* target = same ? same : placed;
            if (target) {
                if (Good(target)) continue;
                TakeOver(target, g);
                mended++;
                continue;
            }
            // Missing from the kept revolution: it goes in by its place.
            VSector* add = Copy(g);
            VSector** link = &t.sectors;
            while (*link && (*link)->idPos <= g->idPos) link = &(*link)->next;
            add->next = *link;
            *link = add;
            if (add->mfm)
                t.mfmCount++;
            else
                t.fmCount++;
            mended++;
        }
    }
    return mended;
}
