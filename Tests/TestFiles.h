// Temporary files for tests: named after the process, so tests running side by side
// never share one, and removed when the test ends.
#pragma once

#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include <unistd.h>

class TempFilesTest : public ::testing::Test {
protected:
    // A fresh path in the temporary folder; ASCII, so its wide form narrows exactly.
    std::wstring Path(const char* name)
    {
        names_.push_back(::testing::TempDir() + "lmesh_test_" + std::to_string(::getpid()) + "_" + name);
        return std::wstring(names_.back().begin(), names_.back().end());
    }

    // Whole-file contents; empty for a file that cannot be read.
    static std::vector<unsigned char> ReadFileBytes(const std::wstring& path)
    {
        std::ifstream in(std::string(path.begin(), path.end()), std::ios::binary);
        return std::vector<unsigned char>(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
    }

    static bool WriteFileBytes(const std::wstring& path, const std::vector<unsigned char>& bytes)
    {
        std::ofstream out(std::string(path.begin(), path.end()), std::ios::binary);
        out.write(reinterpret_cast<const char*>(bytes.data()), std::streamsize(bytes.size()));
        return out.good();
    }

    void TearDown() override
    {
        for (const std::string& name : names_) std::remove(name.c_str());
    }

private:
    std::vector<std::string> names_;
};
