#!/usr/bin/env bash
# Whole conversions as a user runs them: every conversion of a 2HD disk between
# a sector format and a track format in both directions, plus the raw paths.
# Each is run RUNS times (default 10); the median wall time and the peak
# memory are printed next to the median time of `cp` of the larger file, and
# of the same copy flushed to disk (zebconv flushes every file it writes
# before putting it in place of the destination).
#
#   bench/e2e.sh [BUILD_DIR] [RUNS]
#
# A destination of - marks a run that writes no file (zebscan).
# BUILD_DIR defaults to ./build (a Release build). Images are made in a fresh
# temporary folder with zebsample and zebconv and removed afterwards.
set -euo pipefail

BUILD=$(cd "${1:-build}" && pwd)
RUNS=${2:-10}
ZEBCONV=$BUILD/zebconv
ZEBSCAN=$BUILD/zebscan
ZEBSAMPLE=$BUILD/zebsample
for t in "$ZEBCONV" "$ZEBSCAN" "$ZEBSAMPLE"; do
    [ -x "$t" ] || { echo "missing $t (build first)" >&2; exit 1; }
done
[ -x /usr/bin/time ] || { echo "missing /usr/bin/time (peak memory)" >&2; exit 1; }

WORK=$(mktemp -d)
trap 'rm -rf "$WORK"' EXIT
cd "$WORK"

# Median of the arguments (milliseconds with three decimals).
median() {
    printf '%s\n' "$@" | sort -n | awk '{v[NR] = $1} END {
        if (NR % 2) m = v[(NR + 1) / 2]; else m = (v[NR / 2] + v[NR / 2 + 1]) / 2;
        printf "%.2f", m }'
}

# Wall and CPU (user + system) time of one run of the command, in
# milliseconds: "wall cpu". CPU time shows the work itself when other
# programs share the machine.
# (Wall time to the microsecond; CPU time as the shell gives it, to the
# millisecond.)
run_ms() {
    local TIMEFORMAT='%3U %3S' t t0 t1
    t0=$EPOCHREALTIME
    { time "$@" >/dev/null 2>&1; } 2>"$WORK/.time"
    t1=$EPOCHREALTIME
    t=$(<"$WORK/.time")
    awk -v a="$t0" -v b="$t1" -v t="$t" \
        'BEGIN { split(t, v, " "); printf "%.3f %.3f", (b - a) * 1000, (v[1] + v[2]) * 1000 }'
}

# Medians of RUNS runs: "wall cpu".
median_ms() {
    local walls=() cpus=() i r
    for ((i = 0; i < RUNS; i++)); do
        r=$(run_ms "$@")
        walls+=("${r% *}")
        cpus+=("${r#* }")
    done
    echo "$(median "${walls[@]}") $(median "${cpus[@]}")"
}

# Peak resident memory of one run, in KiB.
peak_kib() {
    /usr/bin/time -f %M -o "$WORK/.peak" "$@" >/dev/null 2>&1 || true
    tail -n 1 "$WORK/.peak"
}

size_of() { stat -c %s "$1"; }

# Sample disks: the 77 x 8 x 1,024 disk in the formats that hold it, the
# PC-98 style disk (FM track 0, 26 x 256 elsewhere) in the D88 family, FDD and
# NFD. Each sector image gets its own ZEB and HFE copy to convert back from.
SECTOR=(hdm d88 dim fdi fdd nfd)
for s in "${SECTOR[@]}"; do
    "$ZEBSAMPLE" "disk.$s" >/dev/null
    "$ZEBCONV" -i "disk.$s" -o "from-$s.zeb" >/dev/null 2>&1
    "$ZEBCONV" -i "disk.$s" -o "from-$s.hfe" >/dev/null 2>&1
done
"$ZEBCONV" -i disk.hdm -o raw.zeb -f raw >/dev/null 2>&1
# Noisy flux captures: 40 x 1 DD of three revolutions, 80 x 2 PC-98 2HD of two.
"$ZEBSAMPLE" noisy.dd.scp >/dev/null
"$ZEBSAMPLE" noisy.2hd.scp >/dev/null

# The machine's cores and load, since other programs change the figures.
echo "$(nproc 2>/dev/null || echo ?) cores; load average $(cut -d' ' -f1-3 /proc/loadavg 2>/dev/null || echo ?); $RUNS runs each"
printf '%-22s %8s %8s %8s %6s %9s %6s %9s %10s %10s\n' conversion ms "cpu ms" "cp ms" ratio "cp+fsync" ratio "peak MiB" "files MiB" "limit MiB"
row() {
    local name=$1 src=$2 dst=$3
    shift 3
    [ "$dst" = - ] || rm -f "$dst"
    "$@" >/dev/null 2>&1 || { echo "$name: failed" >&2; return 1; }
    local in out big ms cpu cpms syncms peak limit r
    in=$(size_of "$src")
    out=0
    [ "$dst" = - ] || out=$(size_of "$dst")
    big=$src
    [ "$out" -gt "$in" ] && big=$dst
    r=$(median_ms "$@")
    ms=${r% *}
    cpu=${r#* }
    r=$(median_ms cp "$big" "$WORK/.copy")
    cpms=${r% *}
    r=$(median_ms dd if="$big" of="$WORK/.copy" bs=4M conv=fsync status=none)
    syncms=${r% *}
    peak=$(peak_kib "$@")
    # Memory goal: twice the input and output files together, plus 8 MiB; for
    # a flux capture (FLUX=1), the capture's size plus 64 MiB.
    limit=$(awk -v a="$in" -v b="$out" -v f="${FLUX:-0}" \
        'BEGIN { printf "%.1f", f ? a / 1048576 + 64 : (2 * (a + b)) / 1048576 + 8 }')
    awk -v n="$name" -v m="$ms" -v u="$cpu" -v c="$cpms" -v f="$syncms" -v p="$peak" -v a="$in" \
        -v b="$out" -v l="$limit" 'BEGIN {
            printf "%-22s %8.2f %8.2f %8.2f %6.2f %9.2f %6.2f %9.1f %10.1f %10s\n",
                   n, m, u, c, m / c, f, m / f, p / 1024, (a + b) / 1048576, l }'
}

for s in "${SECTOR[@]}"; do
    for t in zeb hfe; do
        row "$s -> $t" "disk.$s" "out.$t" "$ZEBCONV" -i "disk.$s" -o "out.$t"
        row "$t -> $s" "from-$s.$t" "out.$s" "$ZEBCONV" -i "from-$s.$t" -o "out.$s"
    done
done
row "raw zeb -> hdm" raw.zeb out.hdm "$ZEBCONV" -i raw.zeb -o out.hdm
row "raw zeb -> zeb" raw.zeb out.zeb "$ZEBCONV" -i raw.zeb -o out.zeb -f encode
row "zeb -> raw zeb" from-hdm.zeb out-raw.zeb "$ZEBCONV" -i from-hdm.zeb -o out-raw.zeb -f raw
row "zebscan raw zeb" raw.zeb - "$ZEBSCAN" raw.zeb
FLUX=1 row "noisy dd scp -> d88" noisy.dd.scp out.d88 "$ZEBCONV" -i noisy.dd.scp -o out.d88
FLUX=1 row "noisy 2hd scp -> d88" noisy.2hd.scp out.d88 "$ZEBCONV" -i noisy.2hd.scp -o out.d88
