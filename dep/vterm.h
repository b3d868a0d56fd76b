// libvterm as the program includes it.
#pragma once

#include <vterm.h>
