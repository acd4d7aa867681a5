// Small kit that the tests of every family share.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <locale.h>
#include <stdlib.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "morva.h"

namespace kit {

// Marks the register; text() is what was registered since, and the register is cut back at the end.
class Logged {
  public:
    Logged() : mark_(elog_mark()) {}
    ~Logged() { elog_flush(0, mark_); }
    std::string text() const {
        char* text = elog_string(mark_);
        std::string copy(text);
        std::free(text);
        return copy;
    }

  private:
    int mark_;
};

// Sets (or, without a value, removes) an environment variable for a scope.
class Env {
  public:
    Env(const char* name, const char* value) : name_(name) {
        if (const char* old = ::getenv(name)) old_ = old;
        value != nullptr ? ::setenv(name, value, 1) : ::unsetenv(name);
    }
    ~Env() { old_ ? ::setenv(name_.c_str(), old_->c_str(), 1) : ::unsetenv(name_.c_str()); }
    Env(const Env&) = delete;
    Env& operator=(const Env&) = delete;

  private:
    std::string name_;
    std::optional<std::string> old_;
};

// A private folder, removed at the end.
class TempDir {
  public:
    TempDir() {
        std::string name = (std::filesystem::temp_directory_path() / "morva-XXXXXX").string();
        path_ = ::mkdtemp(name.data());
    }
    ~TempDir() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;
    const std::string& path() const { return path_; }
    std::string file(const std::string& name) const { return path_ + "/" + name; }

  private:
    std::string path_;
};

inline std::string read_file(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

inline void write_file(const std::string& path, std::string_view bytes) {
    std::ofstream(path, std::ios::binary).write(bytes.data(), static_cast<long>(bytes.size()));
}

// For a scope numbers of the C library have a decimal comma, and days and months foreign names;
// false when no such locale can be made.
class CommaLocale {
  public:
    CommaLocale() {
        write_file(
            folder_.file("source"),
            "LC_NUMERIC\ndecimal_point \",\"\nthousands_sep \"\"\ngrouping -1\n"
            "END LC_NUMERIC\nLC_TIME\n"
            "abday \"So\";\"Mo\";\"Di\";\"Mi\";\"Do\";\"Fr\";\"Sa\"\n"
            "abmon "
            "\"ja\";\"fe\";\"ma\";\"ap\";\"my\";\"jn\";\"jl\";\"au\";\"se\";\"oc\";\"no\";\"de\"\n"
            "END LC_TIME\n");
        const std::string make = "localedef -c -i " + folder_.file("source") + " " +
                                 folder_.file("comma") + " >/dev/null 2>&1";
        // Other categories are missing, which is a warning and status 1.
        made_ = std::system(make.c_str()) != -1 && ::setlocale(LC_NUMERIC, "comma") != nullptr &&
                ::setlocale(LC_TIME, "comma") != nullptr;
    }
    ~CommaLocale() {
        ::setlocale(LC_NUMERIC, "C");
        ::setlocale(LC_TIME, "C");
    }
    CommaLocale(const CommaLocale&) = delete;
    CommaLocale& operator=(const CommaLocale&) = delete;
    explicit operator bool() const { return made_; }

  private:
    TempDir folder_;
    Env path_{"LOCPATH", folder_.path().c_str()};
    bool made_;
};

// What `body` writes to a stdio stream that it is handed.
inline std::string written(const std::function<void(FILE*)>& body) {
    char* text = nullptr;
    size_t size = 0;
    FILE* stream = ::open_memstream(&text, &size);
    body(stream);
    std::fclose(stream);
    std::string copy(text, size);
    std::free(text);
    return copy;
}

// What `body` writes to a descriptor of the process (1: stdout, 2: stderr).
inline std::string captured(int fd, const std::function<void()>& body) {
    FILE* file = std::tmpfile();
    std::fflush(nullptr);
    const int saved = ::dup(fd);
    ::dup2(::fileno(file), fd);
    body();
    std::fflush(nullptr);
    ::dup2(saved, fd);
    ::close(saved);
    std::string text;
    std::rewind(file);
    for (int c; (c = std::fgetc(file)) != EOF;) text.push_back(static_cast<char>(c));
    std::fclose(file);
    return text;
}

// A copy of bytes that ends at an unmapped page: reading one byte too far is a crash.
class Guarded {
  public:
    explicit Guarded(std::string_view bytes) : size_(bytes.size()) {
        const size_t page = static_cast<size_t>(::sysconf(_SC_PAGESIZE));
        length_ = (size_ + 2 * page - 1) / page * page;
        map_ = static_cast<char*>(
            ::mmap(nullptr, length_, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
        if (map_ == MAP_FAILED) ::abort();
        ::mprotect(map_ + length_ - page, page, PROT_NONE);
        data_ = map_ + length_ - page - size_;
        if (size_ > 0) std::memcpy(data_, bytes.data(), size_);
    }
    ~Guarded() { ::munmap(map_, length_); }
    Guarded(const Guarded&) = delete;
    Guarded& operator=(const Guarded&) = delete;
    char* data() const { return data_; }
    size_t size() const { return size_; }

  private:
    size_t size_;
    size_t length_ = 0;
    char* map_ = nullptr;
    char* data_ = nullptr;
};

// Takes over a string from malloc.
inline std::string taken(char* text) {
    std::string copy(text != nullptr ? text : "<null>");
    std::free(text);
    return copy;
}

}  // namespace kit
