#pragma once
#include "DataFile.h"

namespace Catalogue {

/// 12.1 as 12,001,000: ordered as versions are ("9" before "12.1" before "12.16"). Absent for what is no version number.
std::optional<std::int64_t> ordinalOf(std::string_view version);

// The data in the shape in which the dictionary import understands it: keys that are names of attributes, values of their
// types, nested dictionaries under names of relationships, no lists.

/// A browser without its releases and its upstream.
Tessarin::Dictionary shapedBrowser(std::string_view identifier, Tessarin::Dictionary const& raw);
/// Its releases, oldest first.
std::vector<Tessarin::Dictionary> shapedReleases(Tessarin::Dictionary const& browser);
/// A node of the tree without its children and statements.
Tessarin::Dictionary shapedFeature(Node const& node);
/// All statements of a node; each refers to its browser.
std::vector<Tessarin::Dictionary> shapedStatements(Node const& node);

} // namespace Catalogue
