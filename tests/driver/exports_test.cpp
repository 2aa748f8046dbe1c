// The shared object exports exactly what the public headers declare with
// TOLVA_API, under the same C names: every entry point and exported data
// object is there, and nothing else (no C++ names, nothing of the C++
// library).
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <stdio.h>

#include <regex>
#include <set>
#include <string>

namespace {

// The words that a shell command prints.
std::set<std::string> words_of(const std::string &command) {
    std::set<std::string> words;
    FILE *pipe = popen(command.c_str(), "r");
    char word[512];
    while (fscanf(pipe, "%511s", word) == 1) words.insert(word);
    pclose(pipe);
    return words;
}

TEST(Exports, TheSharedObjectExportsExactlyTheHeadersDeclarations) {
    std::string lib = getenv("TOLVA_SHARED_LIB"), data = getenv("TOLVA_TEST_DATA");
    auto exported = words_of("nm -D --defined-only '" + lib + "' | awk '{print $3}'");
    // The host's header and the headers of the parts, read together.
    auto declared =
        words_of("cat '" + data + "'/../../include/tolva/*.h | grep -o '^TOLVA_API [^(;[]*'" +
                 " | awk '{print $NF}' | tr -d '*'");
    for (const char *name :
         {"RASTER_dd_entry32", "lpEMData", "GlobalAlloc", "zunOpen", "rlGetPixel", "LoadString",
          "WriteCellBits", "d_gdp", "GetPrivateProfileInt"})
        ASSERT_TRUE(declared.count(name)) << name << ": the header's declarations were not read";
    for (const std::string &name : declared)
        EXPECT_TRUE(exported.count(name)) << name << " is declared but not exported";
    // A sanitized build adds the sanitizers' bookkeeping, and the type
    // information of every function type that clang's UBSan function checks export.
    const bool sanitized = dlsym(RTLD_DEFAULT, "__asan_init") != nullptr;
    const std::regex tooling("__(asan|odr_asan|ubsan).*|_ZT[IS]F.*");
    for (const std::string &name : exported)
        EXPECT_TRUE(declared.count(name) || (sanitized && std::regex_match(name, tooling)))
            << name << " is exported but not declared";
}

}  // namespace
