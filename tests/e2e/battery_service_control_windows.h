// How the test of the batteries has the service's handler called.
#pragma once

/// Auto-reset events: the machine runs from its battery; the percentage changed.
inline constexpr wchar_t kUnpluggedEvent[] = L"Global\\TvkTestUnplugged";
inline constexpr wchar_t kPercentageEvent[] = L"Global\\TvkTestPercentage";
