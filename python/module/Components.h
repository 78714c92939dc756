#pragma once

#include "Lib/DataComponent.h"

#include <pybind11/pybind11.h>

#include <string>

namespace Kelvaris::Python {

/// The components by their ids, each as the dictionary of its properties.
pybind11::dict dictOf(const DataComponentList& components);

/// Makes the component of that id from the dictionary and puts it into the list, in place of one of the same type.
/// Throws ValueError for an id that no library has registered, and with the logged reason where the component can't be
/// read from the dictionary; the list is unchanged then.
void setComponent(DataComponentList& components, const std::string& id, const pybind11::dict& properties);

/// Throws KeyError if there is none.
void removeComponent(DataComponentList& components, const std::string& id);

} // namespace Kelvaris::Python
