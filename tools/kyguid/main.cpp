// kyguid: the machine identity as this machine's KyGuid64.dll sees it, and
// why it is what it is. Reads the command line and hands over to a command.
#include <windows.h>

#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <exception>
#include <string>

#include "tools/kyguid/cli.h"

namespace KyGuidCli {
namespace {

const char kUsage[] =
    "usage: kyguid <command> [--json] [--help]   or   kyguid --version\n"
    "\n"
    "commands:\n"
    "  read       the machine GUID that Guid.db holds, as the reader returns it\n"
    "  update     run a synchronous update and print what it did\n"
    "  build      the GUID the present hardware gives, writing nothing\n"
    "  inventory  every disk and adapter as the fetchers see them\n"
    "  explain    what an update would decide now, and why (writes nothing)\n"
    "  history    the GUID in force and the builds kept in Guid.db, newest first\n"
    "  legacy     the legacy scheme's files, summarised\n"
    "  capture    this machine's hardware as a machine file, for --machine\n"
    "\n"
    "options:\n"
    "  --json            print JSON for scripts (errors stay sentences on stderr)\n"
    "  --machine FILE    inventory, build and explain only: use the simulated\n"
    "                    machine described in FILE instead of this machine's hardware\n"
    "  --output FILE     capture only: write the machine file there, not to stdout\n"
    "\n"
    "exit codes: 0 done, 1 no GUID or nothing to show, 2 bad command line,\n"
    "3 KyGuid64.dll not loadable, 4 bad machine file, 5 data folder not writable,\n"
    "6 unexpected failure\n";

struct Command {
  const char* name;
  bool takesMachine;
  bool takesOutput;
  const char* help;
  int (*run)(const Options&);
};

const Command kCommands[] = {
    {"read", false, false,
     "usage: kyguid read [--json]\n"
     "prints the machine GUID through KyGuid64.dll; exit 1 when there is none",
     &ReadCommand},
    {"update", false, false,
     "usage: kyguid update [--json]\n"
     "runs a synchronous update through KyGuid64.dll (the 12-hour limit does not\n"
     "apply) and prints its result with the GUID before and after; exit 1 when no\n"
     "GUID resulted, 5 when the data folder is not writable",
     &UpdateCommand},
    {"build", true, false,
     "usage: kyguid build [--machine FILE] [--json]\n"
     "prints the GUID the present hardware gives, through KyGuid64.dll, writing nothing;\n"
     "with --machine, the GUID the simulated machine described in FILE gives",
     &BuildCommand},
    {"inventory", true, false,
     "usage: kyguid inventory [--machine FILE] [--json]\n"
     "lists every disk and adapter as the fetchers see them: all fields, scores,\n"
     "best marks, key and detail texts; with --machine, those of the simulated\n"
     "machine described in FILE",
     &InventoryCommand},
    {"explain", true, false,
     "usage: kyguid explain [--machine FILE] [--json]\n"
     "runs the update decision, saving nothing, and prints the record in force, the\n"
     "disk and adapter it is bound to, the matching table's row and whether the GUID\n"
     "would be kept, adopted or rebuilt. With --machine, the hardware is the\n"
     "simulated machine described in FILE and the files are still this machine's:\n"
     "what would an update do if the hardware became that? Exit 1 when no GUID\n"
     "would result",
     &ExplainCommand},
    {"history", false, false,
     "usage: kyguid history [--json]\n"
     "prints the record in force and the builds kept in Guid.db, newest first, each\n"
     "with the GUID it replaced and the disks and adapters present at the time;\n"
     "exit 1 when there is no Guid.db or no valid GUID in it",
     &HistoryCommand},
    {"legacy", false, false,
     "usage: kyguid legacy [--json]\n"
     "summarises GlobalMgr.db, GlobalMgrBack.db, GuidList.db, GuidInfo.db and HDD.db\n"
     "of the data folder; exit 1 when none of them exists",
     &LegacyCommand},
    {"capture", false, true,
     "usage: kyguid capture [--output FILE]\n"
     "writes this machine's hardware as the library reads it (the disks' raw\n"
     "answers, the adapters, the SCSI ports, NetBIOS and the processor brand) as a\n"
     "machine file that --machine replays on any machine; it reads the hardware\n"
     "and writes nothing but its output. Exit 5 when FILE cannot be written",
     &CaptureCommand},
};

enum class Parsed { kRun, kHelp, kError };

Parsed ParseOptions(const Command& command, int argc, char** argv, Options& options) {
  for (int i = 2; i < argc; ++i) {
    const std::string argument = argv[i];
    if (argument == "--help" || argument == "-h") return Parsed::kHelp;
    if (argument == "--json") {
      options.json = true;
    } else if (argument == "--machine" || argument.compare(0, 10, "--machine=") == 0) {
      if (!command.takesMachine) {
        PrintError("--machine works only with inventory, build and explain, not with %s",
                   command.name);
        return Parsed::kError;
      }
      const bool joined = argument.size() > 9;  // --machine=FILE
      options.machineFile = joined ? argument.substr(10) : i + 1 < argc ? argv[++i] : "";
      if (options.machineFile.empty()) {
        PrintError("--machine needs the name of a machine file");
        return Parsed::kError;
      }
    } else if (argument == "--output" && command.takesOutput) {
      options.outputFile = i + 1 < argc ? argv[++i] : "";
      if (options.outputFile.empty()) {
        PrintError("--output needs the name of a file");
        return Parsed::kError;
      }
    } else {
      PrintError("unknown option '%s' for %s; try kyguid %s --help", argv[i], command.name,
                 command.name);
      return Parsed::kError;
    }
  }
  return Parsed::kRun;
}

int Run(int argc, char** argv) {
  if (argc == 2 && strcmp(argv[1], "--version") == 0) {
    printf("kyguid %s\n", KYGUID_VERSION);
    return kExitOk;
  }
  if (argc < 2 || strcmp(argv[1], "--help") == 0 || strcmp(argv[1], "-h") == 0) {
    fputs(kUsage, argc < 2 ? stderr : stdout);
    return argc < 2 ? kExitUsage : kExitOk;
  }
  for (const Command& command : kCommands) {
    if (strcmp(argv[1], command.name) != 0) continue;
    Options options;
    switch (ParseOptions(command, argc, argv, options)) {
      case Parsed::kHelp:
        puts(command.help);
        return kExitOk;
      case Parsed::kError:
        return kExitUsage;
      case Parsed::kRun:
        return command.run(options);
    }
  }
  PrintError("unknown command '%s'; try kyguid --help", argv[1]);
  return kExitUsage;
}

}  // namespace

void PrintError(const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  fputs("kyguid: ", stderr);
  vfprintf(stderr, format, arguments);
  fputs(".\n", stderr);
  va_end(arguments);
}

}  // namespace KyGuidCli

int main(int argc, char** argv) {
  // A fault must end the tool quietly with its exit code, never open a
  // crash dialog on a support engineer's screen.
  SetErrorMode(SEM_FAILCRITICALERRORS | SEM_NOGPFAULTERRORBOX);
  try {
    return KyGuidCli::Run(argc, argv);
  } catch (const std::exception& error) {
    KyGuidCli::PrintError("stopped by an unexpected failure (%s)", error.what());
  } catch (...) {
    KyGuidCli::PrintError("stopped by an unexpected failure");
  }
  return KyGuidCli::kExitInternal;
}
