// The kolvari tool's sub-commands. Each takes the arguments after its name and returns the exit status.
#ifndef KOLVARI_TOOLS_COMMANDS_H
#define KOLVARI_TOOLS_COMMANDS_H

#include <string>
#include <vector>

class CvelCertificate;
class CvelLogger;

using Arguments = std::vector<std::string>;

// Exit statuses shared by the commands.
inline constexpr int kExitOk = 0;
inline constexpr int kExitFailure = 1;  // the work failed (unreadable file, malformed DER, library error)
inline constexpr int kExitUsage = 2;    // bad command line, or input that is not what the command reads

int runInfo(const Arguments& args);
int runDer(const Arguments& args);
int runCert(const Arguments& args);
int runDetect(const Arguments& args);
int runSign(const Arguments& args);
int runSignPdf(const Arguments& args);
int runLogCheck(const Arguments& args);
int runInspect(const Arguments& args);
int runVerify(const Arguments& args);

// The tool's own logger: on when a configuration file lies beside the program ("<path of kolvari>.cfgLog").
CvelLogger& toolLogger();

// Prints a parsed certificate as `kolvari cert` does, as text or as one JSON object.
void printCertificate(const CvelCertificate& certificate, bool json);

// Reads a whole file; false when it cannot be read.
bool readWholeFile(const std::string& path, std::vector<unsigned char>& out);

// The value of one hexadecimal digit, or -1.
int hexDigitValue(char c);

// The value that follows the option at args[i]: stored in into and i advanced past it; false when none follows.
bool optionValue(const Arguments& args, size_t& i, std::string& into);

// "FILE [--json]" in either order: the one file and whether --json was given; false for anything else.
bool parseFileAndJson(const Arguments& args, std::string& path, bool& json);

#endif  // KOLVARI_TOOLS_COMMANDS_H
