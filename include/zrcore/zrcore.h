// Everything of libzrcore: the plug-in registry and reader plug-ins.
#ifndef ZRCORE_ZRCORE_H
#define ZRCORE_ZRCORE_H

#include <zr/zr.h>
#include <zrcore/plugin.h>
#include <zrcore/plugins.h>
#include <zrcore/reader.h>
#include <zrcore/version.h>

#endif
