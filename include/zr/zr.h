// Everything of libzr: the ZR value types, threads and synchronisation, and the zrbase layer.
#ifndef ZR_ZR_H
#define ZR_ZR_H

#include <zr/CBuffer.h>
#include <zr/CData.h>
#include <zr/CException.h>
#include <zr/CMutex.h>
#include <zr/CThread.h>
#include <zr/CTimeStamp.h>
#include <zr/RPtr.h>
#include <zr/RSocket.h>
#include <zr/RURI.h>
#include <zr/ZRTypes.h>
#include <zr/ZRVersion.h>
#include <zrbase/exception.h>
#include <zrbase/object_refcount.h>
#include <zrbase/path.h>
#include <zrbase/stream.h>
#include <zrbase/stream_file.h>
#include <zrbase/string_with_format.h>
#include <zrbase/timecode.h>
#include <zrbase/timestamp.h>

#endif
