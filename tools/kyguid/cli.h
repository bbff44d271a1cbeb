// What the command line's files share: exit codes, the parsed options and
// the commands themselves.
#pragma once

#include <string>

namespace KyGuidCli {

enum ExitCode {
  kExitOk = 0,
  kExitNoGuid = 1,          // no GUID, or nothing of what was asked for exists yet
  kExitUsage = 2,           // bad command line
  kExitNoLibrary = 3,       // KyGuid64.dll could not be loaded
  kExitBadMachineFile = 4,  // --machine file unreadable or not understood
  kExitNotWritable = 5,     // the data folder cannot be written
  kExitInternal = 6,        // an unexpected failure inside the tool
};

struct Options {
  bool json = false;
  std::string machineFile;  // empty: the real machine
  std::string outputFile;   // capture: empty for stdout
};

// Prints "kyguid: " and the sentence on stderr. The sentence has no final
// full stop; one is added.
void PrintError(const char* format, ...) __attribute__((format(printf, 1, 2)));

// Through the shipped KyGuid64.dll.
int ReadCommand(const Options& options);
int UpdateCommand(const Options& options);
int BuildCommand(const Options& options);
// Through the core linked into the tool.
int InventoryCommand(const Options& options);
int ExplainCommand(const Options& options);
int HistoryCommand(const Options& options);
int LegacyCommand(const Options& options);
int CaptureCommand(const Options& options);

}  // namespace KyGuidCli
