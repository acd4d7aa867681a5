// The histories that wfreport keeps of its work: how fast each section was decoded and how large
// its amplitudes are, in rings that others draw while it runs and that the next run goes on with.
#pragma once

#include <string>

#include "morva.h"
#include "wf_table.hpp"

class History {
  public:
    // Rings of `size` points in a folder, which is made when it is missing; none without a folder.
    History(std::string folder, int size) : folder_(std::move(folder)), size_(size) {}
    ~History() {
        for (Ring* ring : {speed_, amplitude_, counts_}) closering(ring);
    }
    History(const History&) = delete;
    History& operator=(const History&) = delete;

    // Notes a section that was decoded well.
    void add(const Row& row) {
        if (folder_.empty() || !has_samples(row) || !(row.seconds > 0)) return;
        const double now = std_now();
        push(speed_, "speed", "decode speed, Msample/s", now,
             static_cast<double>(row.samples) / row.seconds / 1e6);
        const Samples samples(row.decoded, static_cast<std::size_t>(row.samples));
        const double amplitude = amplitude_of(samples, row.scale.factor);
        if (is_counts(row.scale.unit))
            push(counts_, "counts", "amplitude, counts", now, amplitude);
        else
            push(amplitude_, "amplitude", std::string("amplitude, ") + row.scale.unit, now,
                 amplitude);
    }

  private:
    void push(Ring*& ring, const std::string& name, const std::string& id, double time,
              double value) {
        if (ring == nullptr) ring = open(folder_ + "/" + name + ".ring", id);
        pushring(ring, time, value);
    }

    Ring* open(const std::string& path, const std::string& id) const {
        char label[RING_ID_SIZE];
        std::snprintf(label, sizeof label, "%s", id.c_str());
        if (make_pathdirs(path.c_str()) != 0) elog_die(0, "no folder for %s\n", path.c_str());
        Ring* ring = openring(path.c_str(), label, size_, 0);
        if (ring == nullptr) elog_die(0, "no history in %s\n", path.c_str());
        return ring;
    }

    const std::string folder_;
    const int size_;
    Ring* speed_ = nullptr;
    Ring* amplitude_ = nullptr;  // in the unit of the settings
    Ring* counts_ = nullptr;     // of sections without a calibration
};
