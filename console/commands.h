// The commands of `pwlapse`. Each returns the program's exit status: 0 done, 1 done but something
// in it failed, 2 unusable input, one line on standard error says why.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "console/site.h"

namespace console {

inline constexpr int kExitDone = 0;
inline constexpr int kExitSomethingFailed = 1;
inline constexpr int kExitUnusable = 2;

struct RunOptions {
  std::string registryFile;  // empty: the registry of this system
  std::string directoryUri;  // empty: as the registry says
  std::string workDir;       // empty: the current directory
  bool debug = false;        // on whatever the registry says
  bool dryRun = false;
  // For a dry run only.
  std::vector<std::string> settings;  // as SiteOptions has them
  std::string reportFile;             // empty: no report is written
  Format format = Format::Text;
};
int runCommand(const RunOptions& options);
int dryRunCommand(const RunOptions& options);

struct DemoOptions {
  std::string workDir;  // empty: a folder below the system's temporary one
};
int demoCommand(const DemoOptions& options);

struct CatchOptions {
  std::uint16_t port = 0;
  std::string directory;
};
int catchCommand(const CatchOptions& options);

struct SettingsOptions {
  std::string registryFile;  // empty: the registry of this system
};
int settingsCommand(const SettingsOptions& options);

struct PoliciesOptions {
  std::string registryFile;  // empty: the registry of this system
  bool shortForm = false;
};
int policiesCommand(const PoliciesOptions& options);

struct MxOptions {
  std::string domainOrAddress;
};
int mxCommand(const MxOptions& options);

struct ListOptions {
  QuestionOptions question;
  std::optional<int> due;             // days left, at most
  std::string policy;                 // its label or policyName; empty: all
  std::vector<std::string> outcomes;  // see outcomeCode(); empty: all
  bool noAddress = false;
  std::vector<std::string> users;  // these, whatever the options above say; empty: all
  std::string sort = "left";
};
int listCommand(const ListOptions& options);

struct ExplainOptions {
  QuestionOptions question;
  std::string user;
};
int explainCommand(const ExplainOptions& options);

struct StatusOptions {
  std::string workDir;         // empty: the current directory
  std::string maxAge = "26h";  // how long ago the last pass may have ended: "90m", "26h", "3d"
  Format format = Format::Text;
};
// The exit status is that of a monitoring check: 0 well, 1 with problems, 2 no pass in time.
int statusCommand(const StatusOptions& options);

struct PreviewOptions {
  QuestionOptions question;
  std::string user;
  bool report = false;               // the administrator's report instead of a user's mail
  bool manager = false;              // the mail to the user's manager instead
  std::optional<std::int32_t> days;  // left; none: as they are
  std::string emlFile;               // empty: none
  std::string htmlFile;              // the same
};
int previewCommand(const PreviewOptions& options);

struct TestMailOptions {
  SiteOptions site;
  std::string address;  // who gets it
  std::string user;     // whom it is about; empty: the user of testEmailOnly
  std::optional<std::int32_t> days;
};
int testMailCommand(const TestMailOptions& options);

struct ForecastOptions {
  QuestionOptions question;
  std::size_t days = 90;
  std::string htmlFile;  // empty: none
};
int forecastCommand(const ForecastOptions& options);

struct CheckOptions {
  QuestionOptions question;
  std::vector<std::string> only;  // names of parts; empty: all
};
// kExitSomethingFailed when there is a fault.
int checkCommand(const CheckOptions& options);

struct InitOptions {
  std::string file;          // to be written
  std::string directoryUri;  // or a controller's name; empty: asked for, or that of Kerberos
  std::string bindUser;
  std::string bindPasswordFile;
  std::string caFile;
  std::string trust;  // SHA-256 of the authority to store
  std::string mailServer;
  std::string smtpUser;
  std::string smtpPasswordFile;
  std::string sender;
  std::string administrator;
  std::vector<std::uint32_t> warnings;  // days; empty: 14, 7 and 1
  std::uint32_t maxAge = 0;             // days; 0: the domain's own
  bool live = false;                    // not in report-only mode
};
// What is not given is asked for on a terminal.
int initCommand(const InitOptions& options);

struct ProtectSecretOptions {
  std::string file;
};
int protectSecretCommand(const ProtectSecretOptions& options);

// The registry that the option stands for, in words.
std::string registryName(const std::string& registryFile);

// One line on standard error, prefixed with the program's name; returns kExitUnusable.
int refuse(const std::string& reason);

}  // namespace console
