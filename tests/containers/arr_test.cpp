#include <map>
#include <random>

#include "support/kit.hpp"

namespace {

std::vector<std::string> strings(Tbl* list) {
    std::vector<std::string> copies;
    for (long i = 0; i < maxtbl(list); ++i)
        copies.emplace_back(static_cast<char*>(gettbl(list, i)));
    freetbl(list, nullptr);
    return copies;
}

TEST(Arr, ListsKeysByUnsignedBytes) {
    Arr* arr = newarr(nullptr);
    for (const char* key : {"b", "a", "B", "\xe9", ""}) setarr(arr, key, key);
    EXPECT_EQ(strings(keysarr(arr)), (std::vector<std::string>{"", "B", "a", "b", "\xe9"}));
    freearr(arr, nullptr);
}

TEST(Arr, BehavesLikeAMapUnderRandomOperations) {
    const unsigned seed = std::random_device{}();
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 random(seed);
    Arr* arr = newarr(nullptr);
    std::map<std::string, void*> model;
    for (long i = 1; i <= 20000; ++i) {
        std::string key(random() % 20, 'a');
        for (char& c : key) c = "ab\xff"[random() % 3];
        void* value = reinterpret_cast<void*>(i);
        const auto found = model.find(key);
        void* const before = found == model.end() ? nullptr : found->second;
        if (random() % 3 != 0) {
            ASSERT_EQ(setarr(arr, key.c_str(), value), before);
            model[key] = value;
        } else {
            ASSERT_EQ(delarr(arr, key.c_str()), before);
            model.erase(key);
        }
        ASSERT_EQ(cntarr(arr), static_cast<long>(model.size()));
    }
    std::vector<std::string> keys;
    for (const auto& [key, value] : model) keys.push_back(key);
    EXPECT_EQ(strings(keysarr(arr)), keys);
    freearr(arr, nullptr);
}

}  // namespace
