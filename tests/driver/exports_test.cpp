// The shared object exports exactly the C names of the public header: every
// name-table target and exported data object is there, and every exported
// symbol is a header name (no C++ names, nothing of the C++ library).
#include <gtest/gtest.h>
#include <stdio.h>

#include <fstream>
#include <regex>
#include <set>
#include <sstream>
#include <string>

namespace {

#if defined(__has_feature)
#if __has_feature(address_sanitizer)
#define TOLVA_SANITIZED 1
#endif
#endif

// In a sanitized build: the sanitizers' bookkeeping, and the type information
// of every function type that clang's UBSan function checks export.
bool tooling(const std::string &symbol) {
#ifdef TOLVA_SANITIZED
    return std::regex_match(symbol, std::regex("__(asan|odr_asan|ubsan).*|_ZT[IS]F.*"));
#else
    (void)symbol;
    return false;
#endif
}

TEST(Exports, EverySymbolIsAHeaderNameAndTheEntriesAreThere) {
    std::set<std::string> symbols, declared;
    std::string command = std::string("nm -D --defined-only '") + getenv("TOLVA_SHARED_LIB") + "'";
    FILE *pipe = popen(command.c_str(), "r");
    ASSERT_NE(pipe, nullptr);
    char line[512], name[256];
    while (fgets(line, sizeof line, pipe) != nullptr)
        if (sscanf(line, "%*s %*s %255s", name) == 1) symbols.insert(name);
    pclose(pipe);
    std::ifstream header(std::string(getenv("TOLVA_TEST_DATA")) + "/../../include/tolva/tolva.h");
    std::stringstream text;
    text << header.rdbuf();
    std::string all = text.str();
    std::regex identifier("[A-Za-z_][A-Za-z0-9_]*");
    for (auto it = std::sregex_iterator(all.begin(), all.end(), identifier);
         it != std::sregex_iterator(); ++it)
        declared.insert(it->str());
    ASSERT_GT(symbols.size(), 100u);

    for (const char *wanted :
         {"CreateSetup", "DestroySetup", "EditSetup", "xEscapeSetup", "ZUNGetFilterVersion",
          "dd_entry", "dd_entry32", "RASTER_dd_entry", "RASTER_dd_entry32", "ExportCellData",
          "fltLoadPointers", "FilterVersion", "FilterID", "szFilter", "export_szDLLName",
          "hDLLModule", "hAppAnchorBlock", "hCommon", "lpCommon", "hSetup", "lpSetup", "hRaster",
          "lpRaster", "hEMData", "lpEMData", "GDPSupport"})
        EXPECT_TRUE(symbols.count(wanted)) << wanted << " is not exported";
    for (const std::string &symbol : symbols)
        EXPECT_TRUE(tooling(symbol) || declared.count(symbol))
            << symbol << " is exported but not in the header";
}

}  // namespace
