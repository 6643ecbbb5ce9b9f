// The kolvari tool's commands, and what they share.
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

// The commands, each with its options, its help and its work (cli/command_line.h).
struct ToolCommand;
ToolCommand infoCommand();
ToolCommand derCommand();
ToolCommand detectCommand();
ToolCommand certCommand();
ToolCommand inspectCommand();
ToolCommand verifyCommand();
ToolCommand logCheckCommand();
ToolCommand signCommand();
ToolCommand signPdfCommand();
ToolCommand timeStampPdfCommand();
ToolCommand extendPdfCommand();
ToolCommand extendCommand();

// `kolvari sign ARGS...`: reads args as the tool does and signs (the batch benchmark runs it in-process).
int runSign(const Arguments& args);

// The tool's own logger: on when a configuration file lies beside the program ("<path of kolvari>.cfgLog").
CvelLogger& toolLogger();

// Prints a parsed certificate as `kolvari cert` does, as text or as one JSON object.
void printCertificate(const CvelCertificate& certificate, bool json);

// Reads a whole file through the tool's input opener (io/input_file.h); false when it cannot be read.
bool readWholeFile(const std::string& path, std::vector<unsigned char>& out);

// The value of one hexadecimal digit, or -1.
int hexDigitValue(char c);

#endif  // KOLVARI_TOOLS_COMMANDS_H
