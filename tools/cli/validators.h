// Checks of option values shared by the commands. A failed check reads "VALUE: what is wrong"; the reader puts
// the option's name in front.
#ifndef KOLVARI_TOOLS_CLI_VALIDATORS_H
#define KOLVARI_TOOLS_CLI_VALIDATORS_H

#include <CLI/CLI.hpp>

#include <functional>
#include <string>

// A check from a function that returns what is wrong with a value, or an empty text when it is right. The
// function may replace the value with its normal form.
CLI::Validator valueCheck(const std::string& name, std::function<std::string(std::string& value)> check);

// sha256, sha384 or sha512.
CLI::Validator digestName();
// A signing time (cli/signing_time.h), passed on in the long form.
CLI::Validator signingTime();
// Whole seconds from 1 to 600.
CLI::Validator timeoutSeconds();

#endif  // KOLVARI_TOOLS_CLI_VALIDATORS_H
