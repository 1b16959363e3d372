// Where Windows keeps the facts that a device context is made of.
#pragma once

namespace Constants::Registry {

/// Below HKEY_LOCAL_MACHINE: the installed system.
inline constexpr wchar_t WindowsCurrentVersionSubPath[] = L"SOFTWARE\\Microsoft\\Windows NT\\CurrentVersion";
inline constexpr wchar_t OSProductName[] = L"ProductName";
/// The build number. The value named "CurrentVersion" has said "6.3" since Windows 8.1.
inline constexpr wchar_t WindowsCurrentVersion[] = L"CurrentBuild";

/// Below the user's part of HKEY_USERS: the user's country or region, a decimal geographic id (GEOID).
inline constexpr wchar_t CountryCodeInternationalGeoSubPath[] = L"Control Panel\\International\\Geo";
inline constexpr wchar_t CountryCodeNation[] = L"Nation";

/// Below the user's part of HKEY_USERS: the user's locale, "de-DE".
inline constexpr wchar_t CountryCodeInternationalSubPath[] = L"Control Panel\\International";
inline constexpr wchar_t CountryCodeLocaleName[] = L"LocaleName";

}  // namespace Constants::Registry
