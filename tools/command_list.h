// The kolvari tool's commands, each with its options, its help and its work (cli/command_line.h): one
// function per cmd_*.cc file. kolvari.cc lists them; the batch benchmark runs `verify` in-process.
#ifndef KOLVARI_TOOLS_COMMAND_LIST_H
#define KOLVARI_TOOLS_COMMAND_LIST_H

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

#endif  // KOLVARI_TOOLS_COMMAND_LIST_H
