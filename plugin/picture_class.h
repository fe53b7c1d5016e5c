// The class-extension record that adds this module's methods to "Picture".
#pragma once

#include "REALplugin.h"

extern REALclassDefinition pictureClass;
