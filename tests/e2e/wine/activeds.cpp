// An activeds.dll that answers from an LDIF file and records what it was asked, for systems without
// a domain. Methods that the service has no use for are not there: a call of one ends it.

// The interfaces as tables of functions, so that only those need writing that are called.
#define CINTERFACE
#include <windows.h>
#include <activeds.h>

#include "tests/e2e/wine/recorded_domain.h"

using namespace stand_in;

namespace {

constexpr int kRowsOfAPage = 4;

DWORD lastError = ERROR_SUCCESS;

HRESULT hresult(platform::HResult status) {
  return static_cast<HRESULT>(status);
}

std::string nameOf(REFIID id) {
  if (IsEqualGUID(id, IID_IADs)) return "IADs";
  if (IsEqualGUID(id, IID_IADsUser)) return "IADsUser";
  return IsEqualGUID(id, IID_IDirectorySearch) ? "IDirectorySearch" : "unknown";
}

BSTR newText(const std::u16string& text) {
  return SysAllocString(std::wstring(text.begin(), text.end()).c_str());
}

// One counted object behind an interface; its life is recorded.
template <class Interface, class Content>
struct Counted : Interface {
  Counted(const char* what, std::unique_ptr<Content> object)
      : kind(what), content(std::move(object)) {
    record("+ " + kind);
  }
  ~Counted() { record("- " + kind); }

  std::string kind;
  std::unique_ptr<Content> content;
  ULONG references = 1;
};

// A directory object, as IADs and as IADsUser: the one's table begins like the other's.
struct Entry : Counted<IADsUser, platform::DirectoryObject> {
  using Counted::Counted;
  std::unique_ptr<platform::DirectoryUser> user;
};

struct Search : Counted<IDirectorySearch, platform::DirectorySearch> {
  using Counted::Counted;
  bool paged = false;
};

// What is behind the handle of a search. With a page size its rows come in pages.
struct Rows {
  std::unique_ptr<platform::SearchRows> content;
  bool paged = false;
  int served = 0;  // of this page
};

template <class Object, class Interface>
ULONG STDMETHODCALLTYPE addReference(Interface* self) {
  return ++static_cast<Object*>(self)->references;
}

template <class Object, class Interface>
ULONG STDMETHODCALLTYPE release(Interface* self) {
  auto* object = static_cast<Object*>(self);
  const ULONG left = --object->references;
  if (left == 0) delete object;
  return left;
}

HRESULT STDMETHODCALLTYPE queryEntry(IADsUser* self, REFIID id, void** out) {
  auto* entry = static_cast<Entry*>(self);
  *out = nullptr;
  if (!begin("QueryInterface", " ", nameOf(id)) || !IsEqualGUID(id, IID_IADsUser)) {
    return E_NOINTERFACE;
  }
  const HRESULT status = hresult(entry->content->queryUser(entry->user));
  if (FAILED(status)) return status;
  ++entry->references;
  *out = self;
  return status;
}

HRESULT STDMETHODCALLTYPE getProperty(IADsUser* self, BSTR name, VARIANT* value) {
  if (!begin("Get", " ", name)) return E_FAIL;
  std::u16string text;
  const HRESULT status = hresult(static_cast<Entry*>(self)->content->get(utf16(name), text));
  if (FAILED(status)) return status;
  V_VT(value) = VT_BSTR;
  V_BSTR(value) = newText(text);
  return status;
}

// SetInfo writes what Put has left.
HRESULT STDMETHODCALLTYPE putProperty(IADsUser*, BSTR name, VARIANT value) {
  return begin("Put", " ", name, " type=", V_VT(&value), " value=", DWORD(V_I4(&value))) ? S_OK
                                                                                         : E_FAIL;
}

HRESULT STDMETHODCALLTYPE writeProperties(IADsUser* self) {
  std::u16string name;
  platform::UserInfo info;
  static_cast<Entry*>(self)->content->get(u"sAMAccountName", name);
  if (!begin("SetInfo", " of ", base::utf16ToUtf8(name))) return E_ACCESSDENIED;
  info.passwordExpired = 1;
  return domain().setUserInfo(name, info).status == platform::kNetSuccess ? S_OK : E_FAIL;
}

template <platform::HResult (platform::DirectoryUser::*Read)(std::u16string&)>
HRESULT STDMETHODCALLTYPE userProperty(IADsUser* self, BSTR* value) {
  *value = nullptr;
  if (!begin("properties")) return E_FAIL;
  std::u16string text;
  const HRESULT status = hresult((*static_cast<Entry*>(self)->user.*Read)(text));
  if (SUCCEEDED(status)) *value = newText(text);
  return status;
}

HRESULT STDMETHODCALLTYPE setPreference(IDirectorySearch* self, PADS_SEARCHPREF_INFO preferences,
                                        DWORD count) {
  auto* search = static_cast<Search*>(self);
  for (DWORD i = 0; i < count; ++i) {
    const DWORD which = preferences[i].dwSearchPref;
    const DWORD type = preferences[i].vValue.dwType, value = preferences[i].vValue.Integer;
    if (!begin("SetSearchPreference", " ", which, " type=", type, " value=", value)) return E_FAIL;
    if (which == ADS_SEARCHPREF_SEARCH_SCOPE) {
      search->content->setScope(static_cast<platform::SearchScope>(value));
    } else if (which == ADS_SEARCHPREF_PAGESIZE) {
      search->paged = true;
    }
  }
  return S_OK;
}

HRESULT STDMETHODCALLTYPE execute(IDirectorySearch* self, LPWSTR filter, LPWSTR* names, DWORD count,
                                  PADS_SEARCH_HANDLE handle) {
  auto* search = static_cast<Search*>(self);
  const std::vector<std::wstring> wide(names, names + count);
  std::vector<std::u16string> attributes;
  std::wstring list;
  for (const std::wstring& name : wide) {
    attributes.push_back(utf16(name.c_str()));
    list += (list.empty() ? L"" : L" ") + name;
  }
  if (!begin("ExecuteSearch", " ", filter, " of ", count, ": ", list.c_str())) return E_FAIL;
  auto rows = std::make_unique<Rows>();
  rows->paged = search->paged;
  const HRESULT status =
      hresult(search->content->execute(utf16(filter), attributes, rows->content));
  if (FAILED(status)) return status;
  record("+ rows");
  *handle = rows.release();
  return status;
}

HRESULT STDMETHODCALLTYPE nextRow(IDirectorySearch*, ADS_SEARCH_HANDLE handle) {
  if (!begin("GetNextRow")) return E_FAIL;
  auto* rows = static_cast<Rows*>(handle);
  const bool endOfPage = rows->paged && rows->served == kRowsOfAPage;
  rows->served = endOfPage ? 0 : rows->served + 1;
  lastError = endOfPage ? ERROR_MORE_DATA : ERROR_SUCCESS;
  return endOfPage ? S_ADS_NOMORE_ROWS : hresult(rows->content->next());
}

// Self-relative descriptors: one whose DACL denies SELF the right to change the password, one whose
// DACL has no entry.
char denying[] =
    "\1\0\4\x80\0\0\0\0\0\0\0\0\0\0\0\0\x14\0\0\0\4\0\x30\0\1\0\0\0\6\0\x28\0\0\1\0\0\1\0\0\0"
    "\x53\x1a\x72\xab\x2f\x1e\xd0\x11\x98\x19\0\xaa\0\x40\x52\x9b\1\1\0\0\0\0\0\5\x0a\0\0";
char plain[] = "\1\0\4\x80\0\0\0\0\0\0\0\0\0\0\0\0\x14\0\0\0\4\0\x08\0\0\0\0";

// What a domain holds beside the columns of the file; false for any other.
bool accountColumn(platform::SearchRows& row, const std::u16string& name, ADSVALUE& value) {
  constexpr std::int64_t kFileTimePerSecond = 10000000;
  platform::SearchColumn user, flags;
  platform::UserInfo info;
  if (FAILED(hresult(row.column(u"sAMAccountName", user))) ||
      !domain().userInfo(user.firstValue, info).ok()) {
    return false;
  }
  if (name == u"userAccountControl" && SUCCEEDED(hresult(row.column(name, flags)))) {
    value.dwType = ADSTYPE_INTEGER;
    value.Integer = static_cast<DWORD>(std::stoul(base::utf16ToUtf8(flags.firstValue)));
  } else if (name == u"msDS-User-Account-Control-Computed") {
    value.dwType = ADSTYPE_INTEGER;
    value.Integer = info.passwordExpired != 0 ? 0x800000 : 0;
  } else if (name == u"pwdLastSet") {
    value.dwType = ADSTYPE_LARGE_INTEGER;
    value.LargeInteger.QuadPart =
        info.passwordExpired != 0
            ? 0
            : platform::systemClock().fileTime() - info.passwordAge * kFileTimePerSecond;
  } else if (name == u"nTSecurityDescriptor") {
    const bool denies = (info.flags & platform::kPasswordCantChange) != 0;
    value.dwType = ADSTYPE_NT_SECURITY_DESCRIPTOR;
    value.SecurityDescriptor.lpValue = reinterpret_cast<BYTE*>(denies ? denying : plain);
    value.SecurityDescriptor.dwLength = denies ? sizeof denying : sizeof plain;
  }
  return value.dwType != ADSTYPE_INVALID;
}

HRESULT STDMETHODCALLTYPE getColumn(IDirectorySearch*, ADS_SEARCH_HANDLE handle, LPWSTR name,
                                    PADS_SEARCH_COLUMN column) {
  if (!begin("GetColumn")) return E_FAIL;
  ADSVALUE ofAccount{};
  if (accountColumn(*static_cast<Rows*>(handle)->content, utf16(name), ofAccount)) {
    record("+ column");
    *column = {};
    column->dwADsType = ofAccount.dwType;
    column->dwNumValues = 1;
    column->pADsValues = new ADSVALUE(ofAccount);
    return S_OK;
  }
  platform::SearchColumn found;
  const HRESULT status = hresult(static_cast<Rows*>(handle)->content->column(utf16(name), found));
  if (FAILED(status)) return status;
  record("+ column");
  *column = {};
  column->dwADsType = static_cast<ADSTYPE>(found.type);
  column->dwNumValues = 1;
  column->pADsValues = new ADSVALUE{};
  column->pADsValues->dwType = column->dwADsType;
  if (found.type == platform::AdsType::LargeInteger) {
    column->pADsValues->LargeInteger.QuadPart = std::stoll(base::utf16ToUtf8(found.firstValue));
  } else {
    column->pADsValues->CaseIgnoreString = newText(found.firstValue);
  }
  return status;
}

HRESULT STDMETHODCALLTYPE freeColumn(IDirectorySearch*, PADS_SEARCH_COLUMN column) {
  record("- column");
  if (column->dwADsType <= ADSTYPE_CASE_IGNORE_STRING) {
    SysFreeString(column->pADsValues->CaseIgnoreString);
  }
  delete column->pADsValues;
  return S_OK;
}

HRESULT STDMETHODCALLTYPE closeRows(IDirectorySearch*, ADS_SEARCH_HANDLE handle) {
  record("- rows");
  delete static_cast<Rows*>(handle);
  return S_OK;
}

// Puts what `openContent` of the domain gives behind an interface with these functions.
template <class Object, class Content, class Functions>
HRESULT open(const char* kind, Functions& functions, LPCWSTR path, DWORD flags, void** out,
             platform::HResult (platform::SnapshotDirectory::*openContent)(
                 const std::u16string&, std::uint32_t, std::unique_ptr<Content>&)) {
  std::unique_ptr<Content> content;
  const HRESULT status = hresult((domain().*openContent)(utf16(path), flags, content));
  if (FAILED(status)) return status;
  auto* object = new Object(kind, std::move(content));
  object->lpVtbl = &functions;
  *out = object;
  return status;
}

HRESULT open(LPCWSTR path, DWORD flags, REFIID id, void** out) {
  static IDirectorySearchVtbl search{};
  search.AddRef = addReference<Search, IDirectorySearch>;
  search.Release = release<Search, IDirectorySearch>;
  search.SetSearchPreference = setPreference;
  search.ExecuteSearch = execute;
  search.GetNextRow = nextRow;
  search.GetColumn = getColumn;
  search.FreeColumn = freeColumn;
  search.CloseSearchHandle = closeRows;
  static IADsUserVtbl entry{};
  entry.QueryInterface = queryEntry;
  entry.AddRef = addReference<Entry, IADsUser>;
  entry.Release = release<Entry, IADsUser>;
  entry.Get = getProperty;
  entry.Put = putProperty;
  entry.SetInfo = writeProperties;
  entry.get_EmailAddress = userProperty<&platform::DirectoryUser::emailAddress>;
  entry.get_FirstName = userProperty<&platform::DirectoryUser::firstName>;
  entry.get_LastName = userProperty<&platform::DirectoryUser::lastName>;
  using platform::SnapshotDirectory;
  return IsEqualGUID(id, IID_IDirectorySearch)
             ? open<Search>("search", search, path, flags, out, &SnapshotDirectory::openSearch)
             : open<Entry>("object", entry, path, flags, out, &SnapshotDirectory::openObject);
}

}  // namespace

EXPORTED HRESULT WINAPI ADsOpenObject(LPCWSTR path, LPCWSTR user, LPCWSTR password, DWORD flags,
                                      REFIID id, void** out) {
  *out = nullptr;
  return begin("ADsOpenObject", " ", path, " user=", user, " password=", password, " flags=", flags,
               " as ", nameOf(id))
             ? open(path, flags, id, out)
             : E_FAIL;
}

EXPORTED HRESULT WINAPI ADsGetObject(LPCWSTR path, REFIID id, void** out) {
  *out = nullptr;
  return begin("ADsGetObject", " ", path, " as ", nameOf(id)) ? open(path, 0, id, out) : E_FAIL;
}

EXPORTED HRESULT WINAPI ADsGetLastError(LPDWORD error, LPWSTR text, DWORD textSize, LPWSTR name,
                                        DWORD nameSize) {
  record("ADsGetLastError ", textSize, " ", nameSize, " -> ", lastError);
  *error = lastError;
  *text = *name = L'\0';
  return S_OK;
}
