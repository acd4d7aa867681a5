// Snoop files of any bytes: records come in order and never tell of more than is there, and those
// that are whole are found again, and nothing else, in a file of them alone.
#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

#include "../tools/morva/snoop_records.hpp"

namespace {

void require(bool condition) {
    if (!condition) std::abort();
}

std::string written(const tool::SnoopRecord& record) {
    std::string text(tool::kSnoopStart);
    text += std::to_string(record.pid) + (record.input ? " < " : " > ");
    text += std::to_string(record.fd) + " " + std::string(record.id) + " ";
    text += std::to_string(record.count) + " " + std::to_string(record.seconds) + "\n";
    return text.append(record.bytes);
}

bool same(const tool::SnoopRecord& a, const tool::SnoopRecord& b) {
    return a.pid == b.pid && a.fd == b.fd && a.count == b.count && a.seconds == b.seconds &&
           a.input == b.input && a.id == b.id && a.bytes == b.bytes;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string_view file(reinterpret_cast<const char*>(data), size);
    tool::SnoopWalk walk(file);
    tool::SnoopRecord record;
    std::vector<tool::SnoopRecord> whole;
    std::string again;
    const char* at = file.data();
    std::size_t skipped = 0;
    while (walk.next(record, skipped)) {
        require(record.id.data() >= at && record.bytes.data() > record.id.data());
        require(record.count > 0 ? record.bytes.size() <= static_cast<std::size_t>(record.count)
                                 : record.bytes.empty());
        at = record.bytes.data() + record.bytes.size();
        require(at <= file.data() + file.size());
        if (record.is_cut()) continue;
        whole.push_back(record);
        again += written(record);
    }
    require(skipped == static_cast<std::size_t>(file.data() + file.size() - at));
    tool::SnoopWalk second(again);
    for (const tool::SnoopRecord& expected : whole)
        require(second.next(record, skipped) && skipped == 0 && same(record, expected));
    require(!second.next(record, skipped) && skipped == 0);
    return 0;
}
