// Checks of option values shared by the commands. A failed check reads "VALUE: what is wrong"; the reader puts
// the option's name in front.
#ifndef KOLVARI_TOOLS_CLI_VALIDATORS_H
#define KOLVARI_TOOLS_CLI_VALIDATORS_H

#include <CLI/CLI.hpp>

#include <functional>
#include <string>

#include "signing/key_source.h"

// A check from a function that returns what is wrong with a value, or an empty text when it is right. The
// function may replace the value with its normal form.
CLI::Validator valueCheck(const std::string& name, std::function<std::string(std::string& value)> check);

// sha256, sha384 or sha512.
CLI::Validator digestName();
// A signing time (cli/signing_time.h), passed on in the long form.
CLI::Validator signingTime();
// Whole seconds from 1 to 600.
CLI::Validator timeoutSeconds();
// --jobs of a batch: a whole number of threads from 1 to kMostJobs (signing/batch_runner.h).
CLI::Validator jobsCount();
// A pass phrase source as --pass takes it: pass:TEXT, env:VAR, file:PATH, fd:N or stdin.
CLI::Validator passSource();

// Declares the options that name the first signer's key (--key, --cert, --p12, --pass, --pkcs11,
// --pkcs11-module) in the group "signer", bound to source and pass, with help texts for command.
void addSignerKeyOptions(CLI::App& app, SignerSource& source, std::string& pass);
// What is wrong with the key options once read (exactly one key: --key with --cert, --p12, or --pkcs11), or an
// empty text.
std::string signerKeyFault(const SignerSource& source);

#endif  // KOLVARI_TOOLS_CLI_VALIDATORS_H
