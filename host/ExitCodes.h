#pragma once
// The mailvane program's exit codes; docs/cli.md lists them for users.

namespace mv::host {

inline constexpr int kExitOk = 0;
inline constexpr int kExitRunFailed = 1;       // a rule or a run failed, or a command's work failed
inline constexpr int kExitUsage = 2;           // unknown command, wrong arguments
inline constexpr int kExitDatabase = 3;        // the rule database could not be placed or opened
inline constexpr int kExitStore = 4;           // a store could not be reached or opened
inline constexpr int kExitProfile = 5;         // the profile file is wrong, or holds a password others can read

}  // namespace mv::host
