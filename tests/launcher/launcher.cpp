// Starts a program and writes its full 32-bit exit code to a file:
//
//     launcher FILE PROGRAM [ARGUMENT...]
//
// A Unix shell only sees 8 bits of the exit code of a program under Wine, or the signal that Wine's
// server sends to a process that takes too long to exit. The file is created empty before the
// program's first instruction, so if it is missing, the program has not run.

#include <windows.h>

#include <cstdint>
#include <cstdio>
#include <string>

namespace {

// Returns the command line after its first argument, which is a file name.
wchar_t* AfterFirst(wchar_t* line) {
  for (bool quoted = false; *line != L'\0' && (quoted || *line != L' '); ++line) {
    if (*line == L'"') quoted = !quoted;
  }
  while (*line == L' ') ++line;
  return line;
}

// A process in the job is killed with the launcher; the children of that process are not.
HANDLE CreateJob() {
  const HANDLE job = CreateJobObjectW(nullptr, nullptr);
  JOBOBJECT_EXTENDED_LIMIT_INFORMATION limits{};
  limits.BasicLimitInformation.LimitFlags =
      JOB_OBJECT_LIMIT_KILL_ON_JOB_CLOSE | JOB_OBJECT_LIMIT_SILENT_BREAKAWAY_OK;
  SetInformationJobObject(job, JobObjectExtendedLimitInformation, &limits, sizeof limits);
  return job;
}

bool StartSuspended(wchar_t* commandLine, PROCESS_INFORMATION& program) {
  STARTUPINFOW startup{};
  startup.cb = sizeof startup;
  startup.dwFlags = STARTF_USESTDHANDLES;
  startup.hStdInput = GetStdHandle(STD_INPUT_HANDLE);
  startup.hStdOutput = GetStdHandle(STD_OUTPUT_HANDLE);
  startup.hStdError = GetStdHandle(STD_ERROR_HANDLE);
  if (CreateProcessW(nullptr, commandLine, nullptr, nullptr, TRUE, CREATE_SUSPENDED, nullptr,
                     nullptr, &startup, &program) == FALSE) {
    return false;
  }
  if (AssignProcessToJobObject(CreateJob(), program.hProcess) != FALSE) return true;
  TerminateProcess(program.hProcess, 1);
  return false;
}

DWORD WINAPI NeverRun(void* /*unused*/) { return 0; }

uint64_t Ticks(const FILETIME& time) {
  return static_cast<uint64_t>(time.dwHighDateTime) << 32 | time.dwLowDateTime;
}

// Wine reports the exit code 0 for a lost process: one that was killed by Linux or ran out of
// stack. A process that exits ends its other threads first, here the witness; a lost process ends
// all threads at once.
bool IsLost(const PROCESS_INFORMATION& program, HANDLE witness) {
  FILETIME created, kernel, user, witnessEnd{}, programEnd{};
  GetThreadTimes(witness, &created, &witnessEnd, &kernel, &user);
  GetProcessTimes(program.hProcess, &created, &programEnd, &kernel, &user);
  return Ticks(witnessEnd) >= Ticks(programEnd);
}

// Returns the final content of the file.
std::string Result(const PROCESS_INFORMATION& program, HANDLE witness) {
  // If only the main thread is lost, the witness would keep the process alive.
  WaitForSingleObject(program.hThread, INFINITE);
  TerminateThread(witness, 0);
  WaitForSingleObject(program.hProcess, INFINITE);
  DWORD code = 0;
  if (GetExitCodeProcess(program.hProcess, &code) == FALSE) return {};
  if (code == 0 && IsLost(program, witness)) return "lost";
  return std::to_string(code);
}

}  // namespace

int main(int count, char** arguments) {
  if (count < 3) return 2;
  PROCESS_INFORMATION program{};
  if (!StartSuspended(AfterFirst(AfterFirst(GetCommandLineW())), program)) {
    std::fprintf(stderr, "launcher: cannot start %s: error %lu\n", arguments[2], GetLastError());
    return 2;
  }
  // Never resumed.
  const HANDLE witness = CreateRemoteThread(program.hProcess, nullptr, 0, NeverRun, nullptr,
                                            CREATE_SUSPENDED, nullptr);
  const HANDLE file = CreateFileA(arguments[1], GENERIC_WRITE, FILE_SHARE_READ, nullptr,
                                  CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
  if (witness == nullptr || file == INVALID_HANDLE_VALUE) return 2;  // ends the job
  ResumeThread(program.hThread);
  const std::string result = Result(program, witness);
  DWORD written = 0;
  const auto size = static_cast<DWORD>(result.size());
  return WriteFile(file, result.data(), size, &written, nullptr) == FALSE ? 2 : 0;
}
