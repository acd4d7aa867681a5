#include "symbols.hpp"

#include <dlfcn.h>

#include <cstdio>

#if defined(__linux__)
#include <elf.h>
#include <link.h>
#include <sys/auxv.h>
#include <sys/stat.h>

#include <algorithm>
#include <cstring>
#include <span>

#include "base/posix.hpp"
#endif

namespace skerrows {
namespace {

#if defined(__linux__)

// A module's file, mapped. Nothing in it is believed before it was checked against its length.
class ElfFile {
  public:
    explicit ElfFile(const char* path) {
        const morva::Descriptor fd(
            morva::retry([&] { return ::open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK); }));
        struct stat status;
        if (!fd || ::fstat(fd.get(), &status) != 0 || !S_ISREG(status.st_mode)) return;
        const auto size = static_cast<std::size_t>(status.st_size);
        if (size < sizeof(ElfW(Ehdr))) return;
        void* address = ::mmap(nullptr, size, PROT_READ, MAP_PRIVATE, fd.get(), 0);
        if (address != MAP_FAILED) file_ = morva::Mapping(address, size);
    }

    // The symbol table's function that covers the address `pc` of a module loaded at `base`.
    void find(std::uintptr_t pc, std::uintptr_t base, Place* place) const {
        const ElfW(Ehdr)* header = view<ElfW(Ehdr)>(0, 1).data();
        if (header == nullptr || std::memcmp(header->e_ident, ELFMAG, SELFMAG) != 0 ||
            header->e_phentsize != sizeof(ElfW(Phdr)) || header->e_shentsize != sizeof(ElfW(Shdr)))
            return;
        const ElfW(Addr) address = pc - base + first_load(*header);
        const auto sections = view<ElfW(Shdr)>(header->e_shoff, header->e_shnum);
        for (const auto& section : sections)
            if (section.sh_type == SHT_SYMTAB && section.sh_link < sections.size())
                find_in(section, sections[section.sh_link], address, place);
    }

  private:
    // `count` records at `offset`, or none when they do not lie within the file.
    template <class T>
    std::span<const T> view(std::uint64_t offset, std::uint64_t count) const {
        if (file_.data() == nullptr || offset > file_.size() || offset % alignof(T) != 0 ||
            count > (file_.size() - offset) / sizeof(T))
            return {};
        return {reinterpret_cast<const T*>(file_.data() + offset), count};
    }

    ElfW(Addr) first_load(const ElfW(Ehdr) & header) const {
        for (const auto& segment : view<ElfW(Phdr)>(header.e_phoff, header.e_phnum))
            if (segment.p_type == PT_LOAD)
                return segment.p_vaddr & ~static_cast<ElfW(Addr)>(::getpagesize() - 1);
        return 0;
    }

    void find_in(const ElfW(Shdr) & table, const ElfW(Shdr) & strings, ElfW(Addr) address,
                 Place* place) const {
        const auto names = view<char>(strings.sh_offset, strings.sh_size);
        for (const auto& symbol :
             view<ElfW(Sym)>(table.sh_offset, table.sh_size / sizeof(ElfW(Sym)))) {
            const int type = symbol.st_info & 0xf;
            if ((type != STT_FUNC && type != STT_GNU_IFUNC) || symbol.st_name >= names.size() ||
                address < symbol.st_value || address - symbol.st_value >= symbol.st_size)
                continue;
            const char* name = names.data() + symbol.st_name;
            const std::size_t length = ::strnlen(
                name, std::min(names.size() - symbol.st_name, sizeof place->function - 1));
            std::memcpy(place->function, name, length);
            place->function[length] = '\0';
            place->offset = address - symbol.st_value;
            return;
        }
    }

    morva::Mapping file_;
};

// The loader knows the program only by the name it was started by.
bool is_main_program(const void* base) {
    const std::uintptr_t headers = ::getauxval(AT_PHDR);
    const auto start = reinterpret_cast<std::uintptr_t>(base);
    return headers > start && headers - start < 4096;
}

void look_into_file(std::uintptr_t address, const Dl_info& info, Place* place) {
    const char* path = is_main_program(info.dli_fbase) ? "/proc/self/exe" : info.dli_fname;
    ElfFile(path).find(address, reinterpret_cast<std::uintptr_t>(info.dli_fbase), place);
}

#else

void look_into_file(std::uintptr_t, const Dl_info&, Place*) {}

#endif

}  // namespace

Place locate(std::uintptr_t address) {
    Place place;
    Dl_info info{};
    if (::dladdr(reinterpret_cast<void*>(address), &info) == 0) return place;
    place.module = info.dli_fname;
    place.module_base = info.dli_fbase;
    place.offset = address - reinterpret_cast<std::uintptr_t>(info.dli_fbase);
    if (info.dli_sname != nullptr) {
        std::snprintf(place.function, sizeof place.function, "%s", info.dli_sname);
        place.offset = address - reinterpret_cast<std::uintptr_t>(info.dli_saddr);
    } else {
        look_into_file(address, info, &place);
    }
    return place;
}

}  // namespace skerrows
