// Geometry of the disk picture: one disc per head, one ring per cylinder
// (cylinder 0 outermost), each sector a segment at its place on the track,
// the index at the top and the track running clockwise.
#pragma once

#include <cstddef>

#include "scan/scan_report.h"
#include "track/vsector.h"

struct MapPoint {
    double x = 0, y = 0;
};

class MapLayout {
public:
    explicit MapLayout(const ScanReport& rep);

    int Width() const { return width_; }
    int Height() const { return height_; }
    // Centre, inner and outer radius of a track's ring.
    void Ring(const TrackFacts& t, MapPoint* centre, double* inner, double* outer) const;
    // Angles in turns (0 = index, clockwise) of sector i; a1 > a0, a1 may pass 1.
    void SectorTurns(const TrackFacts& t, size_t i, double* a0, double* a1) const;
    // A point well inside sector i's segment.
    MapPoint SectorCentre(const TrackFacts& t, size_t i) const;

    static constexpr double kRadius = 280;
    static constexpr double kHole = 50;
    static constexpr int kDisc = 600;
    static constexpr int kTop = 40;
    static constexpr int kLegend = 70;

private:
    int firstCyl_ = 0, cylinders_ = 1;
    bool head1Only_ = false;
    int discs_ = 1;
    int width_ = 0, height_ = 0;
};

const char* StateColour(SectorState s);
constexpr const char* kUnformattedColour = "#7f7f7f";
constexpr const char* kGapColour = "#e0e0e0";
