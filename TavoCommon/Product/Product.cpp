// What the product and its maker are called: five keys of Product.cfg, each with a built-in default,
// read once per process. The narrow forms convert the wide values, so both read the file alike.
#include "Cache.h"
#include "Global.h"

namespace Tavo {
namespace {

TCachedString<wchar_t> s_companyW, s_companyNameW, s_productW, s_productNameW, s_shortcutNameW;
TCachedString<char> s_companyA, s_companyNameA, s_productA, s_productNameA, s_shortcutNameA;

// An empty value is a value: it stays for good, the default does not come back.
template <const wchar_t* szKey, const wchar_t* szDefault>
void ComputeIdentity(CStringW& strValue)
{
    strValue = GetConfigString(szKey, szDefault, nullptr);
}

const wchar_t kCompanyKey[] = L"Company";
const wchar_t kCompanyDefault[] = L"Brenmoor";
const wchar_t kCompanyNameKey[] = L"CompanyName";
const wchar_t kCompanyNameDefault[] = L"Brenmoor Software";
const wchar_t kProductKey[] = L"Product";
const wchar_t kProductDefault[] = L"Harbell";
const wchar_t kProductNameKey[] = L"ProductName";
const wchar_t kProductNameDefault[] = L"Harbell Professional";
const wchar_t kShortcutNameKey[] = L"ShortcutName";
const wchar_t kShortcutNameDefault[] = L"Harbell Professional.lnk";

} // namespace

const wchar_t* GetCompanyW() { return CachedOnce(s_companyW, &ComputeIdentity<kCompanyKey, kCompanyDefault>); }
const char* GetCompanyA() { return CachedOnceNarrow(s_companyA, &GetCompanyW); }

const wchar_t* GetCompanyNameW()
{
    return CachedOnce(s_companyNameW, &ComputeIdentity<kCompanyNameKey, kCompanyNameDefault>);
}
const char* GetCompanyNameA() { return CachedOnceNarrow(s_companyNameA, &GetCompanyNameW); }

const wchar_t* GetProductW() { return CachedOnce(s_productW, &ComputeIdentity<kProductKey, kProductDefault>); }
const char* GetProductA() { return CachedOnceNarrow(s_productA, &GetProductW); }

const wchar_t* GetProductNameW()
{
    return CachedOnce(s_productNameW, &ComputeIdentity<kProductNameKey, kProductNameDefault>);
}
const char* GetProductNameA() { return CachedOnceNarrow(s_productNameA, &GetProductNameW); }

const wchar_t* GetShortcutNameW()
{
    return CachedOnce(s_shortcutNameW, &ComputeIdentity<kShortcutNameKey, kShortcutNameDefault>);
}
const char* GetShortcutNameA() { return CachedOnceNarrow(s_shortcutNameA, &GetShortcutNameW); }

} // namespace Tavo
