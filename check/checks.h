// Everything about a site that can be known before a pass is made, part by part: settings, lists,
// templates, the directory, the mail server, the work folder. Nothing is mailed, expired or
// written. The current directory is the work folder. Used by the console; one thread.
#pragma once

#include <string>
#include <vector>

#include "check/report.h"
#include "config/expiration_settings.h"
#include "platform/host/host.h"
#include "service/policy_table.h"

namespace check {

// What all parts look at.
struct Site {
  platform::Host host;
  config::ExpirationSettings settings;
  std::string settingsKey;
  bool memberServer = false;
  service::PolicyTable slots{};
};

Site loadSite(platform::Host host);

// The key of a named policy, as a pass reads it.
std::string policyKey(const Site& site, int slot);
// "FILE:LINE PWExpiration\smtpServer"; without the file where the registry has no lines.
std::string valueName(const Site& site, const std::string& key, const std::string& value);

// Whether a mail address could be one: something on both sides of one '@', no blanks, no comma.
bool looksLikeAddress(const std::string& text);
// Whether it could be the name or the address of a mail server, which has no port.
bool looksLikeHost(const std::string& text);

void checkSettings(const Site& site, Report& report);
void checkTemplates(const Site& site, Report& report);
void checkFolder(const Site& site, Report& report);
void checkMailServer(const Site& site, Report& report);
// Both for a directory that has been read (beginPass). `due` gets logon names of users whose change
// a pass will have to force next, some 20 of those whom the lists cover.
void checkLists(const Site& site, Report& report, std::vector<std::string>& due);
void checkDirectory(const Site& site, const std::vector<std::string>& due, Report& report);

}  // namespace check
