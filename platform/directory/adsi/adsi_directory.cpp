#include "platform/directory/adsi/adsi_directory.h"

#include <algorithm>
#include <array>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <windows.h>
#include <activeds.h>

#include "base/ascii.h"
#include "base/unicode.h"
#include "platform/directory/adsi/com_types.h"
#include "platform/directory/adsi/error_words.h"
#include "platform/directory/ldap_filter.h"
#include "platform/text/code_page.h"
#include "platform/text/windows/wide_text.h"

namespace platform {
namespace {

// How many characters ADsGetLastError may fill of each of its two texts.
constexpr std::size_t kErrorTextCapacity = 512;

HResult resultOf(HRESULT status) {
  return static_cast<HResult>(status);
}

class AdsiUser final : public DirectoryUser {
 public:
  explicit AdsiUser(ComPtr<IADsUser> user) : user_(std::move(user)) {}

  HResult emailAddress(std::u16string& value) override {
    return read(&IADsUser::get_EmailAddress, value);
  }
  HResult firstName(std::u16string& value) override {
    return read(&IADsUser::get_FirstName, value);
  }
  HResult lastName(std::u16string& value) override { return read(&IADsUser::get_LastName, value); }

 private:
  HResult read(HRESULT (WINAPI IADsUser::*property)(BSTR*), std::u16string& value) {
    Bstr text;
    const HRESULT status = (user_.operator->()->*property)(text.out());
    if (SUCCEEDED(status)) value = fromWide(text.get());
    return resultOf(status);
  }

  ComPtr<IADsUser> user_;
};

class AdsiObject final : public DirectoryObject {
 public:
  explicit AdsiObject(ComPtr<IADs> object) : object_(std::move(object)) {}

  HResult get(const std::u16string& attribute, std::u16string& value) override {
    const Bstr name(toWide(attribute));
    Variant variant;
    const HRESULT status = object_->Get(name.get(), variant.get());
    if (FAILED(status)) return resultOf(status);
    if (V_VT(variant.get()) != VT_BSTR) return resultOf(E_ADS_CANT_CONVERT_DATATYPE);
    value = fromWide(V_BSTR(variant.get()));
    return resultOf(status);
  }

  HResult queryUser(std::unique_ptr<DirectoryUser>& user) override {
    ComPtr<IADsUser> found;
    const HRESULT status = object_->QueryInterface(IID_IADsUser, found.out());
    if (SUCCEEDED(status)) user = std::make_unique<AdsiUser>(std::move(found));
    return resultOf(status);
  }

 private:
  ComPtr<IADs> object_;
};

// The first value of a column that holds texts or numbers; of any other, an empty one.
std::u16string firstValue(const ADS_SEARCH_COLUMN& column) {
  if (column.dwNumValues == 0 || column.pADsValues == nullptr) return {};
  switch (column.dwADsType) {
    case ADSTYPE_DN_STRING:
    case ADSTYPE_CASE_EXACT_STRING:
    case ADSTYPE_CASE_IGNORE_STRING:
      return fromWide(column.pADsValues->CaseIgnoreString);  // one union, the same member type
    case ADSTYPE_INTEGER:
      return base::utf8ToUtf16(std::to_string(column.pADsValues->Integer));
    case ADSTYPE_LARGE_INTEGER:
      return base::utf8ToUtf16(std::to_string(column.pADsValues->LargeInteger.QuadPart));
    default:
      return {};
  }
}

std::string descriptorBytes(const ADS_SEARCH_COLUMN& column) {
  if (column.dwADsType != ADSTYPE_NT_SECURITY_DESCRIPTOR || column.dwNumValues == 0) return {};
  const ADS_NT_SECURITY_DESCRIPTOR& value = column.pADsValues->SecurityDescriptor;
  return std::string(reinterpret_cast<const char*>(value.lpValue), value.dwLength);
}

class AdsiRows final : public SearchRows {
 public:
  AdsiRows(ComPtr<IDirectorySearch> search, ADS_SEARCH_HANDLE handle)
      : search_(std::move(search)), handle_(handle) {}
  ~AdsiRows() override { search_->CloseSearchHandle(handle_); }
  AdsiRows(const AdsiRows&) = delete;
  AdsiRows& operator=(const AdsiRows&) = delete;

  HResult next() override { return resultOf(search_->GetNextRow(handle_)); }

  HResult column(const std::u16string& attribute, SearchColumn& column) override {
    std::wstring name = toWide(attribute);
    ADS_SEARCH_COLUMN native{};
    const HRESULT status = search_->GetColumn(handle_, name.data(), &native);
    if (FAILED(status)) return resultOf(status);
    column.type = static_cast<AdsType>(native.dwADsType);
    column.firstValue = firstValue(native);
    column.bytes = descriptorBytes(native);
    search_->FreeColumn(&native);
    return resultOf(status);
  }

 private:
  ComPtr<IDirectorySearch> search_;
  ADS_SEARCH_HANDLE handle_;
};

class AdsiSearch final : public DirectorySearch {
 public:
  explicit AdsiSearch(ComPtr<IDirectorySearch> search) : search_(std::move(search)) {}

  HResult setScope(SearchScope scope) override {
    return setPreference(ADS_SEARCHPREF_SEARCH_SCOPE, static_cast<DWORD>(scope));
  }
  HResult setPageSize(std::uint32_t rows) override {
    return setPreference(ADS_SEARCHPREF_PAGESIZE, rows);
  }
  HResult setForManyDescriptors() override {
    const HResult status = setPreference(ADS_SEARCHPREF_SECURITY_MASK, ADS_SECURITY_INFO_DACL);
    return failed(status) ? status
                          : setPreference(ADS_SEARCHPREF_CACHE_RESULTS, FALSE, ADSTYPE_BOOLEAN);
  }

  HResult execute(const std::u16string& filter, const std::vector<std::u16string>& attributes,
                  std::unique_ptr<SearchRows>& rows) override {
    std::wstring text = toWide(filter);
    std::vector<std::wstring> names;
    for (const std::u16string& attribute : attributes) names.push_back(toWide(attribute));
    std::vector<LPWSTR> pointers;
    for (std::wstring& name : names) pointers.push_back(name.data());
    ADS_SEARCH_HANDLE handle = nullptr;
    const HRESULT status = search_->ExecuteSearch(text.data(), pointers.data(),
                                                  static_cast<DWORD>(pointers.size()), &handle);
    if (SUCCEEDED(status)) rows = std::make_unique<AdsiRows>(search_, handle);
    return resultOf(status);
  }

 private:
  // `type`: ADSTYPE_INTEGER, or ADSTYPE_BOOLEAN, whose member of the union is of the same kind.
  HResult setPreference(ADS_SEARCHPREF_ENUM which, DWORD number, ADSTYPE type = ADSTYPE_INTEGER) {
    ADS_SEARCHPREF_INFO preference{};
    preference.dwSearchPref = which;
    preference.vValue.dwType = type;
    preference.vValue.Integer = number;
    return resultOf(search_->SetSearchPreference(&preference, 1));
  }

  ComPtr<IDirectorySearch> search_;
};

class AdsiDirectory final : public DirectoryAccess {
 public:
  HResult initialise() override {
    const HRESULT status = CoInitialize(nullptr);
    if (SUCCEEDED(status)) ++initialised_;
    return resultOf(status);
  }

  void uninitialise() override {
    // Callers end what they began whether or not it succeeded; COM counts only what did.
    if (initialised_ == 0) return;
    --initialised_;
    CoUninitialize();
  }

  HResult openObject(const std::u16string& path, std::uint32_t flags,
                     std::unique_ptr<DirectoryObject>& object) override {
    return open<IADs, AdsiObject>(path, flags, IID_IADs, object);
  }
  HResult openSearch(const std::u16string& path, std::uint32_t flags,
                     std::unique_ptr<DirectorySearch>& search) override {
    return open<IDirectorySearch, AdsiSearch>(path, flags, IID_IDirectorySearch, search);
  }
  HResult getObject(const std::u16string& path, std::unique_ptr<DirectoryObject>& object) override {
    return get<IADs, AdsiObject>(path, IID_IADs, object);
  }
  HResult getSearch(const std::u16string& path, std::unique_ptr<DirectorySearch>& search) override {
    return get<IDirectorySearch, AdsiSearch>(path, IID_IDirectorySearch, search);
  }

  DirectoryFacts facts() override {
    DirectoryFacts facts;
    std::unique_ptr<DirectoryObject> rootDse;
    std::u16string server;
    if (failed(openObject(u"LDAP://rootDSE", kAdsSecureAuthentication, rootDse))) return facts;
    if (!failed(rootDse->get(u"dnsHostName", server))) facts.server = utf16ToAnsi(server);
    return facts;
  }

  // A search of the user's object alone: allowedAttributesEffective is worked out when it is asked
  // for by name.
  std::optional<bool> mayWrite(const std::u16string& logonName, const char* attribute) override {
    std::u16string path;
    ComPtr<IDirectorySearch> object;
    if (findPath(logonName, path) != kOk ||
        FAILED(ADsOpenObject(toWide(path).c_str(), nullptr, nullptr, kAdsSecureAuthentication,
                             IID_IDirectorySearch, object.out()))) {
      return std::nullopt;
    }
    std::wstring filter = L"(objectClass=*)";
    std::wstring name = L"allowedAttributesEffective";
    LPWSTR names[] = {name.data()};
    ADS_SEARCHPREF_INFO scope{};
    scope.dwSearchPref = ADS_SEARCHPREF_SEARCH_SCOPE;
    scope.vValue.dwType = ADSTYPE_INTEGER;
    scope.vValue.Integer = ADS_SCOPE_BASE;
    ADS_SEARCH_HANDLE handle = nullptr;
    if (FAILED(object->SetSearchPreference(&scope, 1)) ||
        FAILED(object->ExecuteSearch(filter.data(), names, 1, &handle))) {
      return std::nullopt;
    }
    std::optional<bool> found;
    ADS_SEARCH_COLUMN column{};
    if (object->GetNextRow(handle) == S_OK) {
      found = false;
      if (SUCCEEDED(object->GetColumn(handle, name.data(), &column))) {
        for (DWORD i = 0; i < column.dwNumValues; ++i) {
          const std::string value = utf16ToAnsi(fromWide(column.pADsValues[i].CaseIgnoreString));
          found = *found || base::equalsNoCase(value, attribute);
        }
        object->FreeColumn(&column);
      }
    }
    object->CloseSearchHandle(handle);
    return found;
  }

  HResult requireNewPassword(const std::u16string& logonName) override {
    initialise();  // the pass may have left the domain by now
    const HResult status = writeNoLastChange(logonName);
    uninitialise();
    return status;
  }

  DirectoryError lastError() override {
    std::array<wchar_t, kErrorTextCapacity> text{};
    std::array<wchar_t, kErrorTextCapacity> provider{};
    DWORD code = 0;
    DirectoryError error;
    if (FAILED(
            ADsGetLastError(&code, text.data(), text.size(), provider.data(), provider.size()))) {
      return error;
    }
    error.code = code;
    error.text = utf16ToAnsi(fromWide(text.data()));
    std::replace_if(
        error.text.begin(), error.text.end(), [](char c) { return c == '\r' || c == '\n'; }, ' ');
    error.provider = utf16ToAnsi(fromWide(provider.data()));
    return error;
  }

  std::string errorText(HResult status) override {
    std::string text = errorWords(status);
    // ADSI may still hold the words of an earlier call, about another object.
    const DirectoryError error = lastError();
    const bool ofThisCall = static_cast<HResult>(HRESULT_FROM_WIN32(error.code)) == status;
    if (ofThisCall && !error.text.empty()) text += ": " + error.text;
    return text;
  }

 private:
  template <class Interface, class Wrapper, class Result>
  static HResult open(const std::u16string& path, std::uint32_t flags, REFIID id,
                      std::unique_ptr<Result>& result) {
    ComPtr<Interface> opened;
    const HRESULT status =
        ADsOpenObject(toWide(path).c_str(), nullptr, nullptr, flags, id, opened.out());
    if (SUCCEEDED(status)) result = std::make_unique<Wrapper>(std::move(opened));
    return resultOf(status);
  }

  template <class Interface, class Wrapper, class Result>
  static HResult get(const std::u16string& path, REFIID id, std::unique_ptr<Result>& result) {
    ComPtr<Interface> opened;
    const HRESULT status = ADsGetObject(toWide(path).c_str(), id, opened.out());
    if (SUCCEEDED(status)) result = std::make_unique<Wrapper>(std::move(opened));
    return resultOf(status);
  }

  HResult writeNoLastChange(const std::u16string& logonName) {
    std::u16string path;
    ComPtr<IADs> user;
    const HResult found = findPath(logonName, path);
    if (found != kOk) return found;
    HRESULT status = ADsOpenObject(toWide(path).c_str(), nullptr, nullptr, kAdsSecureAuthentication,
                                   IID_IADs, user.out());
    if (FAILED(status)) return resultOf(status);
    VARIANT never{};  // ADSI makes the large integer of it
    V_VT(&never) = VT_I4;
    const Bstr attribute(L"pwdLastSet");
    status = user->Put(attribute.get(), never);
    return resultOf(FAILED(status) ? status : user->SetInfo());
  }

  // The path of the user with this logon name, below the domain's default naming context.
  // kNoSuchObject when there is none.
  HResult findPath(const std::u16string& logonName, std::u16string& path) {
    std::unique_ptr<DirectoryObject> rootDse;
    std::u16string context;
    std::unique_ptr<DirectorySearch> search;
    std::unique_ptr<SearchRows> rows;
    SearchColumn column;
    HResult status = openObject(u"LDAP://rootDSE", kAdsSecureAuthentication, rootDse);
    const auto step = [&status](const auto& call) {
      if (!failed(status)) status = call();
    };
    step([&] { return rootDse->get(u"defaultNamingContext", context); });
    step([&] { return openSearch(u"LDAP://" + context, kAdsSecureAuthentication, search); });
    step([&] { return search->setScope(SearchScope::Subtree); });
    step([&] {
      return search->execute(
          u"(&(objectClass=user)(sAMAccountName=" + escapeFilterValue(logonName) + u"))",
          {u"ADsPath"}, rows);
    });
    step([&] { return rows->next(); });
    if (status == kAdsNoMoreRows) return kNoSuchObject;
    step([&] { return rows->column(u"ADsPath", column); });
    path = column.firstValue;
    return status;
  }

  int initialised_ = 0;
};

}  // namespace

std::unique_ptr<DirectoryAccess> makeAdsiDirectory() {
  return std::make_unique<AdsiDirectory>();
}

}  // namespace platform
