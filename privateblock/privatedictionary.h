#pragma once

/// Private creators of group F215: the system's own and that of the generation before it.
inline constexpr char kPrivateCreator[] = "PB group A";
inline constexpr char kLegacyPrivateCreator[] = "Harbourscope";
inline constexpr unsigned short kPrivateGroup = 0xF215;

/// Tells the toolkit's data dictionary the value representations of the private elements, current and legacy.
/// The toolkit needs them to create elements by tag and to read them back from objects in implicit VR, so
/// programs call this at their start, before the first object is loaded; every PBItem calls it too. Only the
/// first call does anything. Thread safe.
void registerPrivateDictionary();
