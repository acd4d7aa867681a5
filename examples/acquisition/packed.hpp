// The samples of a recording's packets in every codec that was asked for: each packet is encoded
// once, by the first client that needs it, and kept for all clients and repetitions.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "codecs.hpp"
#include "recording.hpp"

class Packed {
  public:
    explicit Packed(const Recording& recording)
        : recording_(recording),
          kept_(recording.pieces.size() * static_cast<std::size_t>(codec_count())) {}
    ~Packed() {
        for (auto& payload : kept_) delete payload.load();
    }
    Packed(const Packed&) = delete;
    Packed& operator=(const Packed&) = delete;

    // The samples of a sequence number in a codec, or raw where that can't hold them. For any
    // number of threads, each with its encoder.
    const Payload& get(int codec, int64_t sequence, Encoder& encoder) {
        auto& kept = kept_[place(codec, sequence)];
        if (const Payload* payload = kept.load(std::memory_order_acquire)) return *payload;
        auto made =
            std::make_unique<Payload>(encoder.encode(codec, samples_at(recording_, sequence)));
        const Payload* others = nullptr;
        // Two that meet here have encoded the same.
        return kept.compare_exchange_strong(others, made.get()) ? *made.release() : *others;
    }

  private:
    std::size_t place(int codec, int64_t sequence) const {
        return static_cast<std::size_t>(codec * recording_.total() + sequence % recording_.total());
    }
    const Recording& recording_;
    std::vector<std::atomic<const Payload*>> kept_;
};
