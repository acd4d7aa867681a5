// Reading what a file or a command gives a function.
#include <cstring>

#include "base/diagnostics.hpp"
#include "base/posix.hpp"
#include "pf/evaluation.hpp"
#include "pf/pfinterpret.hpp"

namespace morva::pf {
namespace {

constexpr std::size_t kLargestText = 16 * 1024 * 1024;

}  // namespace

bool read_text(const Call& call, int fd, String* text) {
    char block[16384];
    for (;;) {
        const ssize_t length = retry([&] { return ::read(fd, block, sizeof block); });
        if (length == 0) return true;
        if (length < 0) {
            elog_log(1, "can't read what '%s' stands for\n", call.argument.c_str());
            return false;
        }
        const auto size = static_cast<std::size_t>(length);
        if (text->size() + size > kLargestText)
            return fail_evaluation(call.node, "there are more than 16 MB");
        if (std::memchr(block, '\0', size) != nullptr)
            return fail_evaluation(call.node, "there is a zero byte in the text");
        text->append(block, size);
    }
}

}  // namespace morva::pf
