// What an operation dropped on the way, and why it failed: the library fills
// it, the programs print it. Library code never prints.
#pragma once

#include <string>
#include <vector>

struct Report {
    // One line per kind of loss, without the "Warning : " the programs put in front.
    std::vector<std::string> warnings;
    // Why the operation failed, naming the file; the first reason given stands.
    std::string error;

    void Warn(std::string line) { warnings.push_back(std::move(line)); }
    // Always returns false, so a failing step can `return report.Fail(...)`.
    bool Fail(std::string reason) {
        if (error.empty()) error = std::move(reason);
        return false;
    }
    void Clear() {
        warnings.clear();
        error.clear();
    }
    // Takes over what another report holds (warnings appended, first error kept).
    void Merge(Report&& other) {
        for (auto& w : other.warnings) warnings.push_back(std::move(w));
        if (error.empty()) error = std::move(other.error);
        other.Clear();
    }
};
