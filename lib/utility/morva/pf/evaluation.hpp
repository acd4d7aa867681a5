// What keeps expansion and evaluation finite, per thread: which nodes are being worked on, how deep
// that has gone, and how much the outermost call has made so far.
#pragma once

#include <cstddef>

#include "pf/pf.hpp"

namespace morva::pf {

inline constexpr int kMostReferences = 32;                  // one leading to the next
inline constexpr std::size_t kMostMade = 64 * 1024 * 1024;  // bytes by one outermost call
inline constexpr std::size_t kReferenceCost = 256;          // bytes that count for a reference
inline constexpr std::size_t kNodeCost = 256;               // and for a copied node

// Stands for the work on one node, a string or a function.
class Evaluation {
  public:
    // Refused, with the reason registered, when the node is already being worked on or the work has
    // gone too deep.
    explicit Evaluation(const Pf* node);
    ~Evaluation();
    Evaluation(const Evaluation&) = delete;
    Evaluation& operator=(const Evaluation&) = delete;

    bool refused() const { return refused_; }

    // Counts what is made by the work in hand. False, with the reason registered, when it is too
    // much.
    static bool charge(std::size_t bytes);

  private:
    bool refused_;
};

// Registers why a string or function has no value. Returns false.
bool fail_evaluation(const Pf* node, const char* reason);

}  // namespace morva::pf
