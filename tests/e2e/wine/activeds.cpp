// An activeds.dll that answers from an LDIF file and records what it was asked, for systems without
// a domain. Methods that the service has no use for are not there: a call of one ends it.
#include <memory>
#include <string>

// The interfaces as tables of functions, so that only those need writing that are called.
#define CINTERFACE
#include <windows.h>
#include <activeds.h>

#include "platform/directory_access.h"
#include "tests/e2e/wine/recorded_domain.h"

#define EXPORTED extern "C" __declspec(dllexport)

namespace {

using stand_in::domain;
using stand_in::mustFail;
using stand_in::record;
using stand_in::shown;
using stand_in::utf16;

constexpr int kRowsOfAPage = 4;

DWORD lastError = ERROR_SUCCESS;

HRESULT hresult(platform::HResult status) {
  return static_cast<HRESULT>(status);
}

std::string hex(HRESULT status) {
  char text[16];
  snprintf(text, sizeof text, "%lx", static_cast<unsigned long>(status));
  return text;
}

std::string nameOf(REFIID id) {
  if (IsEqualGUID(id, IID_IADs)) return "IADs";
  if (IsEqualGUID(id, IID_IADsUser)) return "IADsUser";
  if (IsEqualGUID(id, IID_IDirectorySearch)) return "IDirectorySearch";
  return "unknown";
}

BSTR newText(const std::u16string& text) {
  return SysAllocString(std::wstring(text.begin(), text.end()).c_str());
}

// One counted object behind an interface; its life is recorded.
template <class Interface, class Table>
struct Counted : Interface {
  Counted(const char* what, Table* table) : kind(what) {
    this->lpVtbl = table;
    record("+ " + kind);
  }
  ~Counted() { record("- " + kind); }

  std::string kind;
  ULONG references = 1;
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

// A directory object, as IADs and as IADsUser: the one's table begins like the other's.

struct Entry;
IADsUserVtbl* entryTable();

struct Entry : Counted<IADsUser, IADsUserVtbl> {
  explicit Entry(std::unique_ptr<platform::DirectoryObject> object)
      : Counted("object", entryTable()), content(std::move(object)) {}
  std::unique_ptr<platform::DirectoryObject> content;
  std::unique_ptr<platform::DirectoryUser> user;
};

Entry& entryOf(IADsUser* self) {
  return *static_cast<Entry*>(self);
}

HRESULT STDMETHODCALLTYPE queryEntry(IADsUser* self, REFIID id, void** out) {
  *out = nullptr;
  record("QueryInterface " + nameOf(id));
  if (!IsEqualGUID(id, IID_IADsUser) || mustFail("QueryInterface")) return E_NOINTERFACE;
  const HRESULT status = hresult(entryOf(self).content->queryUser(entryOf(self).user));
  if (FAILED(status)) return status;
  ++entryOf(self).references;
  *out = self;
  return status;
}

HRESULT STDMETHODCALLTYPE getProperty(IADsUser* self, BSTR name, VARIANT* value) {
  std::u16string text;
  const HRESULT status =
      mustFail("Get") ? E_FAIL : hresult(entryOf(self).content->get(utf16(name), text));
  record("Get " + shown(name) + " -> " + hex(status));
  if (FAILED(status)) return status;
  V_VT(value) = VT_BSTR;
  V_BSTR(value) = newText(text);
  return status;
}

template <platform::HResult (platform::DirectoryUser::*Read)(std::u16string&)>
HRESULT STDMETHODCALLTYPE userProperty(IADsUser* self, BSTR* value) {
  std::u16string text;
  const HRESULT status =
      mustFail("properties") ? E_FAIL : hresult((*entryOf(self).user.*Read)(text));
  *value = FAILED(status) ? nullptr : newText(text);
  return status;
}

IADsUserVtbl* entryTable() {
  static IADsUserVtbl table = [] {
    IADsUserVtbl t{};
    t.QueryInterface = queryEntry;
    t.AddRef = addReference<Entry, IADsUser>;
    t.Release = release<Entry, IADsUser>;
    t.Get = getProperty;
    t.get_EmailAddress = userProperty<&platform::DirectoryUser::emailAddress>;
    t.get_FirstName = userProperty<&platform::DirectoryUser::firstName>;
    t.get_LastName = userProperty<&platform::DirectoryUser::lastName>;
    return t;
  }();
  return &table;
}

// A search. Behind its handle are the rows; with a page size they come in pages.

struct Rows {
  std::unique_ptr<platform::SearchRows> content;
  bool paged = false;
  int served = 0;  // of this page
};

struct Search;
IDirectorySearchVtbl* searchTable();

struct Search : Counted<IDirectorySearch, IDirectorySearchVtbl> {
  explicit Search(std::unique_ptr<platform::DirectorySearch> search)
      : Counted("search", searchTable()), content(std::move(search)) {}
  std::unique_ptr<platform::DirectorySearch> content;
  bool paged = false;
};

Search& searchOf(IDirectorySearch* self) {
  return *static_cast<Search*>(self);
}

HRESULT STDMETHODCALLTYPE setPreference(IDirectorySearch* self, PADS_SEARCHPREF_INFO preferences,
                                        DWORD count) {
  if (mustFail("SetSearchPreference")) return E_FAIL;
  for (DWORD i = 0; i < count; ++i) {
    const ADS_SEARCHPREF_INFO& one = preferences[i];
    record("SetSearchPreference " + std::to_string(one.dwSearchPref) + " type=" +
           std::to_string(one.vValue.dwType) + " value=" + std::to_string(one.vValue.Integer));
    if (one.dwSearchPref == ADS_SEARCHPREF_SEARCH_SCOPE) {
      searchOf(self).content->setScope(static_cast<platform::SearchScope>(one.vValue.Integer));
    } else {
      searchOf(self).paged = true;
    }
  }
  return S_OK;
}

HRESULT STDMETHODCALLTYPE execute(IDirectorySearch* self, LPWSTR filter, LPWSTR* names, DWORD count,
                                  PADS_SEARCH_HANDLE handle) {
  record("ExecuteSearch " + shown(filter) + " of " + std::to_string(count) + ": " +
         shown(names[0]));
  if (mustFail("ExecuteSearch")) return E_FAIL;
  auto rows = std::make_unique<Rows>();
  rows->paged = searchOf(self).paged;
  const HRESULT status =
      hresult(searchOf(self).content->execute(utf16(filter), utf16(names[0]), rows->content));
  if (FAILED(status)) return status;
  record("+ rows");
  *handle = rows.release();
  return status;
}

HRESULT STDMETHODCALLTYPE nextRow(IDirectorySearch*, ADS_SEARCH_HANDLE handle) {
  if (mustFail("GetNextRow")) return E_FAIL;
  auto* rows = static_cast<Rows*>(handle);
  if (rows->paged && rows->served == kRowsOfAPage) {
    rows->served = 0;
    lastError = ERROR_MORE_DATA;
    return S_ADS_NOMORE_ROWS;
  }
  ++rows->served;
  lastError = ERROR_SUCCESS;
  return hresult(rows->content->next());
}

HRESULT STDMETHODCALLTYPE getColumn(IDirectorySearch*, ADS_SEARCH_HANDLE handle, LPWSTR name,
                                    PADS_SEARCH_COLUMN column) {
  if (mustFail("GetColumn")) return E_FAIL;
  platform::SearchColumn found;
  const HRESULT status = hresult(static_cast<Rows*>(handle)->content->column(utf16(name), found));
  if (FAILED(status)) return status;
  record("+ column");
  *column = {};
  column->dwADsType = static_cast<ADSTYPE>(found.type);
  column->dwNumValues = 1;
  column->pADsValues = new ADSVALUE{};
  column->pADsValues->dwType = column->dwADsType;
  column->pADsValues->CaseIgnoreString = newText(found.firstValue);
  return status;
}

HRESULT STDMETHODCALLTYPE freeColumn(IDirectorySearch*, PADS_SEARCH_COLUMN column) {
  record("- column");
  SysFreeString(column->pADsValues->CaseIgnoreString);
  delete column->pADsValues;
  return S_OK;
}

HRESULT STDMETHODCALLTYPE closeRows(IDirectorySearch*, ADS_SEARCH_HANDLE handle) {
  record("- rows");
  delete static_cast<Rows*>(handle);
  return S_OK;
}

IDirectorySearchVtbl* searchTable() {
  static IDirectorySearchVtbl table = [] {
    IDirectorySearchVtbl t{};
    t.AddRef = addReference<Search, IDirectorySearch>;
    t.Release = release<Search, IDirectorySearch>;
    t.SetSearchPreference = setPreference;
    t.ExecuteSearch = execute;
    t.GetNextRow = nextRow;
    t.GetColumn = getColumn;
    t.FreeColumn = freeColumn;
    t.CloseSearchHandle = closeRows;
    return t;
  }();
  return &table;
}

HRESULT open(LPCWSTR path, DWORD flags, REFIID id, void** out) {
  *out = nullptr;
  if (IsEqualGUID(id, IID_IDirectorySearch)) {
    std::unique_ptr<platform::DirectorySearch> search;
    const HRESULT status = hresult(domain().openSearch(utf16(path), flags, search));
    if (SUCCEEDED(status)) *out = new Search(std::move(search));
    return status;
  }
  std::unique_ptr<platform::DirectoryObject> object;
  const HRESULT status = hresult(domain().openObject(utf16(path), flags, object));
  if (SUCCEEDED(status)) *out = new Entry(std::move(object));
  return status;
}

}  // namespace

EXPORTED HRESULT WINAPI ADsOpenObject(LPCWSTR path, LPCWSTR user, LPCWSTR password, DWORD flags,
                                      REFIID id, void** out) {
  record("ADsOpenObject " + shown(path) + " user=" + shown(user) +
         " password=" + (password == nullptr ? "null" : "given") +
         " flags=" + std::to_string(flags) + " as " + nameOf(id));
  if (mustFail("ADsOpenObject")) {
    *out = nullptr;
    return E_FAIL;
  }
  return open(path, flags, id, out);
}

EXPORTED HRESULT WINAPI ADsGetObject(LPCWSTR path, REFIID id, void** out) {
  record("ADsGetObject " + shown(path) + " as " + nameOf(id));
  if (mustFail("ADsGetObject")) {
    *out = nullptr;
    return E_FAIL;
  }
  return open(path, 0, id, out);
}

EXPORTED HRESULT WINAPI ADsGetLastError(LPDWORD error, LPWSTR text, DWORD textSize, LPWSTR name,
                                        DWORD nameSize) {
  record("ADsGetLastError " + std::to_string(textSize) + " " + std::to_string(nameSize) + " -> " +
         std::to_string(lastError));
  *error = lastError;
  text[0] = L'\0';
  name[0] = L'\0';
  return S_OK;
}
