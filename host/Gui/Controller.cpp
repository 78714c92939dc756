#include "Gui/Controller.h"

namespace Kelvaris {

Controller::~Controller() = default;

} // namespace Kelvaris
