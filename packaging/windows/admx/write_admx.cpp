// Writes the group policy templates from the table of settings: pwlapse.admx, and beside it
// LANGUAGE/pwlapse.adml for each language.
//   write_admx FOLDER TRANSLATIONS...
// TRANSLATIONS: files named LANGUAGE.txt with lines "english = translated". English needs none.
// Ends with status 1 and a line for each text that a language lacks.
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "base/html.h"
#include "config/editions.h"
#include "config/settings_table.h"

namespace {

using config::Setting;
using config::SettingGroup;
using config::SettingType;

constexpr const char* kXmlHead = "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n";
constexpr const char* kNamespaces =
    " revision=\"1.0\" schemaVersion=\"1.0\""
    " xmlns=\"http://schemas.microsoft.com/GroupPolicy/2006/07/PolicyDefinitions\">\n";

// A folder of the editor's tree. What stands in the table is English, as in the table of settings.
struct Category {
  const char* name;
  const char* parent;  // empty: the top
  std::string title;
  bool isName = false;  // the title is the name of a key, in every language
};

// One value of one key.
struct Policy {
  const Setting* setting;
  std::string id;
  std::string key;
  std::string value;
  std::string category;
};

// A text of one language.
class Texts {
 public:
  explicit Texts(std::map<std::string, std::string> translations, bool english)
      : translations_(std::move(translations)), english_(english) {}

  std::string operator()(const std::string& text) {
    if (english_ || text.empty()) return text;
    const auto found = translations_.find(text);
    if (found != translations_.end()) return found->second;
    missing_.insert(text);
    return text;
  }
  const std::set<std::string>& missing() const { return missing_; }

 private:
  std::map<std::string, std::string> translations_;
  bool english_;
  std::set<std::string> missing_;
};

// The help without its Markdown.
std::string plain(const std::string& markdown) {
  std::string text;
  for (const char c : markdown) {
    if (c != '`' && c != '*') text.push_back(c);
  }
  return text;
}

std::string afterLast(const std::string& key) {
  return key.substr(key.rfind('\\') + 1);
}

// "MPE", "MPEMS": an edition as it stands in a name; "" for a key of no edition.
std::string editionOf(const std::string& key) {
  const std::string member = config::kPolicyRootMpems;
  const std::string domain = config::kPolicyRootMpe;
  if (key.compare(0, member.size(), member) == 0) return "MPEMS";
  return key.compare(0, domain.size(), domain) == 0 ? "MPE" : "";
}

std::vector<Category> categories() {
  std::vector<Category> all = {{"Pwlapse", "", "Password expiration"},
                               {"Directory", "Pwlapse", "Directory server (not Windows)"},
                               {"Parameters", "Pwlapse", "Service"}};
  static const char* const kEditionNames[] = {"MPE", "MPEMS"};
  static std::set<std::string> names;
  for (const std::string edition : kEditionNames) {
    const char* root = names.insert("Edition_" + edition).first->c_str();
    all.push_back({root, "Pwlapse",
                   edition == "MPE" ? "Domain controllers (MPE)" : "Member servers (MPEMS)"});
    all.push_back({names.insert(edition + "_PWExpiration").first->c_str(), root, "Expiration"});
    for (int slot = 0; slot < config::kNamedPolicies; ++slot) {
      const std::string name = config::policySlotName(slot);
      all.push_back({names.insert(edition + "_" + name).first->c_str(), root, name, true});
    }
  }
  return all;
}

// What the program keeps for itself is no setting of an administrator.
std::vector<Policy> policies() {
  std::vector<Policy> all;
  for (const Setting& setting : config::settingsTable()) {
    if (setting.group == SettingGroup::Product) continue;
    for (const std::string& key : config::settingKeys(setting.group)) {
      for (int i = 0; i < setting.count; ++i) {
        const std::string edition = editionOf(key);
        const bool root = setting.group == SettingGroup::EditionRoot;
        const std::string category = edition.empty() ? afterLast(key)
                                     : root          ? "Edition_" + edition
                                                     : edition + "_" + afterLast(key);
        const std::string value = config::settingName(setting, i);
        all.push_back({&setting, category + "_" + value, key, value, category});
      }
    }
  }
  return all;
}

std::string attribute(const char* name, const std::string& value) {
  return " " + std::string(name) + "=\"" + base::escapeHtml(value) + "\"";
}

std::string reference(const char* kind, const std::string& id) {
  return "$(" + std::string(kind) + "." + id + ")";
}

std::string elementOf(const Policy& policy) {
  const Setting& setting = *policy.setting;
  const std::string names =
      attribute("id", policy.id) + attribute("valueName", policy.value) + " required=\"true\"";
  if (config::isText(setting.type)) {
    return "<text" + names + attribute("maxLength", std::to_string(setting.limit)) + "/>";
  }
  const std::string most = std::to_string(setting.limit == 0 ? 0x7FFFFFFFU : setting.limit);
  return "<decimal" + names + attribute("minValue", "0") + attribute("maxValue", most) + "/>";
}

std::string definition(const Policy& policy) {
  const bool flag = policy.setting->type == SettingType::Flag;
  std::string text =
      "    <policy" + attribute("name", policy.id) + " class=\"Machine\"" +
      attribute("displayName", reference("string", policy.id)) +
      attribute("explainText", reference("string", policy.setting->name + std::string("_Help"))) +
      attribute("key", policy.key);
  if (flag) text += attribute("valueName", policy.value);
  if (!flag) text += attribute("presentation", reference("presentation", policy.id));
  text += ">\n      <parentCategory" + attribute("ref", policy.category) +
          "/>\n      <supportedOn ref=\"SUPPORTED_Pwlapse\"/>\n";
  if (flag) {
    text +=
        "      <enabledValue><decimal value=\"1\"/></enabledValue>\n"
        "      <disabledValue><decimal value=\"0\"/></disabledValue>\n";
  } else {
    text += "      <elements>" + elementOf(policy) + "</elements>\n";
  }
  return text + "    </policy>\n";
}

std::string definitions(const std::vector<Policy>& all) {
  std::string text = kXmlHead;
  text += "<policyDefinitions";
  text += kNamespaces;
  text +=
      "  <policyNamespaces><target prefix=\"pwlapse\" namespace=\"Kadro.Policies.Pwlapse\"/>"
      "</policyNamespaces>\n"
      "  <resources minRequiredRevision=\"1.0\"/>\n"
      "  <supportedOn><definitions>\n"
      "    <definition name=\"SUPPORTED_Pwlapse\" displayName=\"$(string.SUPPORTED_Pwlapse)\"/>\n"
      "  </definitions></supportedOn>\n"
      "  <categories>\n";
  for (const Category& category : categories()) {
    text += "    <category" + attribute("name", category.name) +
            attribute("displayName", reference("string", category.name)) + ">";
    if (*category.parent != '\0') {
      text += "<parentCategory" + attribute("ref", category.parent) + "/>";
    }
    text += "</category>\n";
  }
  text += "  </categories>\n  <policies>\n";
  for (const Policy& policy : all) text += definition(policy);
  return text + "  </policies>\n</policyDefinitions>\n";
}

// What the default is, and how much a value may hold.
std::string limitsText(const Setting& setting, Texts& texts) {
  std::string text;
  const auto add = [&text](const std::string& words) { text += "\n" + words; };
  if (config::isText(setting.type)) {
    if (*setting.text != '\0') add(texts("Default:") + " " + setting.text);
    add(texts("At most so many bytes:") + " " + std::to_string(setting.limit));
    return text;
  }
  add(texts("Default:") + " " + std::to_string(setting.number));
  if (*setting.unit != '\0') add(texts("Unit:") + " " + texts(setting.unit));
  if (setting.limit != 0) add(texts("At most:") + " " + std::to_string(setting.limit));
  return text;
}

std::string stringElement(const std::string& id, const std::string& text) {
  return "      <string" + attribute("id", id) + ">" + base::escapeHtml(text) + "</string>\n";
}

std::string presentationOf(const Policy& policy, Texts& texts) {
  const Setting& setting = *policy.setting;
  std::string label = policy.value;
  if (*setting.unit != '\0') label += " (" + texts(setting.unit) + ")";
  std::string text = "      <presentation" + attribute("id", policy.id) + ">";
  if (config::isText(setting.type)) {
    text += "<textBox" + attribute("refId", policy.id) + "><label>" + base::escapeHtml(label) +
            "</label><defaultValue>" + base::escapeHtml(setting.text) + "</defaultValue></textBox>";
  } else {
    text += "<decimalTextBox" + attribute("refId", policy.id) +
            attribute("defaultValue", std::to_string(setting.number)) + ">" +
            base::escapeHtml(label) + "</decimalTextBox>";
  }
  return text + "</presentation>\n";
}

std::string resources(const std::vector<Policy>& all, Texts& texts) {
  std::string text = kXmlHead;
  text += "<policyDefinitionResources";
  text += kNamespaces;
  text +=
      "  <displayName>pwlapse</displayName>\n  <description>pwlapse</description>\n"
      "  <resources>\n    <stringTable>\n";
  text += stringElement("SUPPORTED_Pwlapse",
                        texts("Windows 8, Windows Server 2012 and later, with pwlapse"));
  for (const Category& category : categories()) {
    text += stringElement(category.name, category.isName ? category.title : texts(category.title));
  }
  for (const Setting& setting : config::settingsTable()) {
    if (setting.group == SettingGroup::Product) continue;
    text += stringElement(setting.name + std::string("_Help"),
                          plain(texts(setting.help)) + limitsText(setting, texts));
  }
  for (const Policy& policy : all) text += stringElement(policy.id, policy.value);
  text += "    </stringTable>\n    <presentationTable>\n";
  for (const Policy& policy : all) {
    if (policy.setting->type != SettingType::Flag) text += presentationOf(policy, texts);
  }
  return text + "    </presentationTable>\n  </resources>\n</policyDefinitionResources>\n";
}

std::map<std::string, std::string> readTranslations(const std::filesystem::path& file) {
  std::map<std::string, std::string> translations;
  std::ifstream lines(file);
  for (std::string line; std::getline(lines, line);) {
    const std::size_t middle = line.find(" = ");
    if (middle != std::string::npos) translations[line.substr(0, middle)] = line.substr(middle + 3);
  }
  return translations;
}

bool writeFile(const std::filesystem::path& file, const std::string& text) {
  std::filesystem::create_directories(file.parent_path());
  std::ofstream out(file, std::ios::binary | std::ios::trunc);
  out << text;
  out.close();
  if (!out) std::fprintf(stderr, "%s cannot be written\n", file.string().c_str());
  return static_cast<bool>(out);
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2) {
    std::fprintf(stderr, "write_admx FOLDER LANGUAGE.txt...\n");
    return 2;
  }
  const std::filesystem::path folder = argv[1];
  const std::vector<Policy> all = policies();
  Texts english({}, true);
  bool whole = writeFile(folder / "pwlapse.admx", definitions(all)) &&
               writeFile(folder / "en-US" / "pwlapse.adml", resources(all, english));
  for (int i = 2; i < argc; ++i) {
    const std::filesystem::path file = argv[i];
    Texts texts(readTranslations(file), false);
    whole &= writeFile(folder / file.stem() / "pwlapse.adml", resources(all, texts));
    for (const std::string& text : texts.missing()) {
      std::fprintf(stderr, "%s: no line \"%s = ...\"\n", file.string().c_str(), text.c_str());
      whole = false;
    }
  }
  return whole ? 0 : 1;
}
