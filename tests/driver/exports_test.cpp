// The shared object exports exactly the C names of the public header: every
// name-table target and exported data object is there, and every exported
// symbol is declared in the header (no C++ names, nothing of the C++ library).
#include <gtest/gtest.h>
#include <stdio.h>

#include <fstream>
#include <regex>
#include <set>
#include <sstream>
#include <string>

namespace {

std::set<std::string> exported_symbols() {
    std::set<std::string> names;
    const char *lib = getenv("TOLVA_SHARED_LIB");
    if (lib == nullptr) return names;
    std::string command = std::string("nm -D --defined-only '") + lib + "'";
    FILE *pipe = popen(command.c_str(), "r");
    if (pipe == nullptr) return names;
    char line[512];
    while (fgets(line, sizeof line, pipe) != nullptr) {
        std::istringstream fields(line);
        std::string address, type, name;
        if (fields >> address >> type >> name) names.insert(name);
    }
    pclose(pipe);
    return names;
}

std::set<std::string> header_identifiers() {
    std::set<std::string> words;
    const char *data = getenv("TOLVA_TEST_DATA");
    if (data == nullptr) return words;
    std::ifstream header(std::string(data) + "/../../include/tolva/tolva.h");
    std::stringstream text;
    text << header.rdbuf();
    std::string all = text.str();
    std::regex identifier("[A-Za-z_][A-Za-z0-9_]*");
    for (auto it = std::sregex_iterator(all.begin(), all.end(), identifier);
         it != std::sregex_iterator(); ++it)
        words.insert(it->str());
    return words;
}

#if defined(__has_feature)
#if __has_feature(address_sanitizer)
#define TOLVA_TEST_SANITIZED 1
#endif
#endif

// Sanitizer builds add their own bookkeeping symbols to the object: the
// function-type checks of clang's UBSan export the type information of every
// function type they check (_ZTIF..., _ZTSF...).
bool sanitizer_symbol(const std::string &name) {
#ifdef TOLVA_TEST_SANITIZED
    return name.rfind("__asan", 0) == 0 || name.rfind("__odr_asan", 0) == 0 ||
           name.rfind("__ubsan", 0) == 0 || name.rfind("_ZTIF", 0) == 0 ||
           name.rfind("_ZTSF", 0) == 0;
#else
    (void)name;
    return false;
#endif
}

TEST(Exports, TheNameTableAndTheExportedDataAreThere) {
    std::set<std::string> symbols = exported_symbols();
    ASSERT_FALSE(symbols.empty()) << "nm could not read the shared object";
    for (const char *name :
         {"CreateSetup", "DestroySetup", "EditSetup", "xEscapeSetup", "ZUNGetFilterVersion",
          "dd_entry", "dd_entry32", "RASTER_dd_entry", "RASTER_dd_entry32", "ExportCellData",
          "fltLoadPointers", "FilterVersion", "FilterID", "szFilter", "export_szDLLName",
          "hDLLModule", "hAppAnchorBlock", "hCommon", "lpCommon", "hSetup", "lpSetup", "hRaster",
          "lpRaster", "hEMData", "lpEMData", "GDPSupport"})
        EXPECT_TRUE(symbols.count(name)) << name << " is not exported";
}

TEST(Exports, EverySymbolIsAHeaderName) {
    std::set<std::string> symbols = exported_symbols();
    std::set<std::string> declared = header_identifiers();
    ASSERT_FALSE(declared.empty()) << "the public header could not be read";
    for (const std::string &name : symbols) {
        if (sanitizer_symbol(name)) continue;
        EXPECT_NE(name.rfind("_Z", 0), 0u) << "C++ name exported: " << name;
        EXPECT_TRUE(declared.count(name)) << name << " is exported but not in the header";
    }
}

}  // namespace
