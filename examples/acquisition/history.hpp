// What a client keeps for others to look at while it runs: a ring of the amplitudes of each channel
// in physical units, one of the latency of all packets together, and the last packet of each
// channel, its body as packet.hpp tells, in a shared heap.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <string>
#include <utility>

#include "../wf_units.hpp"
#include "codecs.hpp"
#include "morva.h"
#include "packet.hpp"

struct Channel {
    std::string station, channel;
    std::string unit;
    Ring* amplitudes;
    long packets = 0, samples = 0;  // in this run
};

class History {
  public:
    // Rings of `size` points in a folder. `anew` empties those that are there.
    History(std::string folder, int size, std::string unit, std::size_t most, bool anew)
        : folder_(std::move(folder)),
          size_(size),
          unit_(std::move(unit)),
          most_(most),
          anew_(anew) {
        latency_ = open("latency", "latency, s");
        heap_ = openx((folder_ + "/last.heap").c_str(), "r+", 1 << 16);
        if (heap_ == nullptr) elog_die(0, "no heap for the last packets\n");
    }
    ~History() {
        for (auto& [name, channel] : channels_) closering(channel.amplitudes);
        closering(latency_);
        closex(&heap_);
    }
    History(const History&) = delete;
    History& operator=(const History&) = delete;

    // Notes a packet, unless there are too many channels.
    void add(Packet& packet, const Counts& counts) {
        Channel* channel = find(packet);
        if (channel == nullptr) return;
        const Scale scale = scale_of(packet.calibration, packet.period, unit_);
        const double last = packet.time + (packet.nsamp - 1) / packet.rate;
        // A point that is there already, from before a restart, is refused, as it should be.
        setring(channel->amplitudes, 2 * packet.nsamp / packet.rate, -99999999);
        pushring(channel->amplitudes, last, amplitude(counts, scale.factor));
        pushring(latency_, std_now(), std_now() - packet.released);
        keep_last(packet, channel->station + "." + channel->channel);
        channel->unit = scale.unit;
        ++channel->packets;
        channel->samples += packet.nsamp;
    }

    const std::map<std::string, Channel>& channels() const { return channels_; }
    Ring* latency() const { return latency_; }

  private:
    // The largest distance from the mean, in the unit of the scale.
    static double amplitude(const Counts& counts, double factor) {
        double sum = 0, most = 0;
        for (const int32_t sample : counts) sum += sample;
        const double mean = sum / static_cast<double>(std::max<std::size_t>(counts.size(), 1));
        for (const int32_t sample : counts) most = std::max(most, std::fabs(sample - mean));
        return most * std::fabs(factor);
    }

    // Whoever reads the heap, or the next run after a kill, finds the old packet or the new one.
    void keep_last(Packet& packet, const std::string& name) {
        put_body(memory_, packet);
        if (putx_safe(heap_, name.c_str(), memory_.bytes(), memory_.size()) == 0) return;
        elog_complain(0, "the last packet of %s can't be stored\n", name.c_str());
    }

    // What comes from a peer becomes part of a file name only when it is harmless there.
    static std::string harmless(const char* text) {
        std::string name = text;
        for (char& c : name)
            if ((c < '0' || c > '9') && (c < 'A' || c > 'Z') && (c < 'a' || c > 'z')) c = '_';
        return name;
    }

    Channel* find(const Packet& packet) {
        const std::string station = harmless(packet.station), channel = harmless(packet.channel);
        const std::string name = station + "." + channel;
        const auto found = channels_.find(name);
        if (found != channels_.end()) return &found->second;
        if (channels_.size() >= most_) {
            if (!std::exchange(is_crowded_, true))
                elog_complain(0, "too many channels: no history of %s\n", name.c_str());
            return nullptr;
        }
        const std::string id = station + " " + channel + ", " + unit_;
        return &channels_.emplace(name, Channel{station, channel, unit_, open(name, id)})
                    .first->second;
    }

    Ring* open(const std::string& name, const std::string& id) {
        const std::string path = folder_ + "/" + name + ".ring";
        char label[RING_ID_SIZE];
        std::snprintf(label, sizeof label, "%s", id.c_str());
        if (anew_ && newring(path.c_str(), label, size_, 0) < 0) elog_die(0, "no history\n");
        Ring* ring = openring(path.c_str(), label, size_, 0);
        if (ring == nullptr) elog_die(0, "no history in %s\n", path.c_str());
        return ring;
    }

    const std::string folder_;
    const int size_;
    const std::string unit_;
    const std::size_t most_;
    const bool anew_;
    std::map<std::string, Channel> channels_;
    bool is_crowded_ = false;
    Ring* latency_;
    Xheap* heap_;
    Memory memory_;
};
