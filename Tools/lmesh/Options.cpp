#include "Options.h"

#include <cerrno>
#include <cmath>
#include <cstdlib>

namespace {

bool ParseNumber(const std::string& text, double& value)
{
    if (text.empty()) return false;
    char* end = nullptr;
    errno = 0;
    value = std::strtod(text.c_str(), &end);
    return errno == 0 && *end == '\0' && std::isfinite(value);
}

}  // namespace

bool ParseArguments(const std::vector<std::string>& args, const KnownOptions& known, ParsedArguments& parsed,
                    std::string& error)
{
    for (size_t i = 0; i < args.size(); ++i) {
        const std::string& arg = args[i];
        if (arg == "--help" || arg == "-h") {
            parsed.help = true;
        } else if (known.flags.count(arg)) {
            parsed.flags.insert(arg);
        } else if (known.numbers.count(arg)) {
            double value = 0.0;
            if (i + 1 >= args.size()) {
                error = arg + " needs a value";
                return false;
            }
            if (!ParseNumber(args[++i], value)) {
                error = arg + " needs a number, got '" + args[i] + "'";
                return false;
            }
            parsed.numbers[arg] = value;
        } else if (arg.size() > 1 && arg[0] == '-') {
            error = "unknown option " + arg;
            return false;
        } else {
            parsed.positional.push_back(arg);
        }
    }
    return true;
}

double NumberOr(const ParsedArguments& parsed, const std::string& name, double fallback)
{
    const auto found = parsed.numbers.find(name);
    return found == parsed.numbers.end() ? fallback : found->second;
}
