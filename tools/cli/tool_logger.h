// The tool's own logger.
#ifndef KOLVARI_TOOLS_CLI_TOOL_LOGGER_H
#define KOLVARI_TOOLS_CLI_TOOL_LOGGER_H

class CvelLogger;

// On when a configuration file lies beside the program ("<path of kolvari>.cfgLog"); one for the process.
CvelLogger& toolLogger();

#endif  // KOLVARI_TOOLS_CLI_TOOL_LOGGER_H
