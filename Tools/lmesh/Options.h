// Command-line parsing for the tool's subcommands: positional arguments, flags and
// options with a numeric value, with one-line errors for anything else.
#pragma once

#include <map>
#include <set>
#include <string>
#include <vector>

struct ParsedArguments {
    std::vector<std::string> positional;
    std::set<std::string> flags;              // e.g. "--inward"
    std::map<std::string, double> numbers;    // e.g. "--tolerance" -> 0.001
    bool help = false;
};

struct KnownOptions {
    std::set<std::string> flags;
    std::set<std::string> numbers;
};

// Parses args against the known options. False with a message for an unknown option, a
// missing value or a value that is not a number.
bool ParseArguments(const std::vector<std::string>& args, const KnownOptions& known, ParsedArguments& parsed,
                    std::string& error);

// The number given for an option, or the fallback.
double NumberOr(const ParsedArguments& parsed, const std::string& name, double fallback);
