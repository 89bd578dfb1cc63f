// Everything a component or a host process needs: libcm and, through it, libzrcore and libzr.
#ifndef CM_CM_H
#define CM_CM_H

#include <zr/zr.h>
#include <zrcore/zrcore.h>

#include <cm/CMComponentConfiguration.h>
#include <cm/CMComponentInfo.h>
#include <cm/CMComponentStatus.h>
#include <cm/CMFileLog.h>
#include <cm/CMFileStream.h>
#include <cm/CMFirewireStream.h>
#include <cm/CMFormatObjectMap.h>
#include <cm/CMFrame.h>
#include <cm/CMLogger.h>
#include <cm/CMMetaData.h>
#include <cm/CMNetworkLog.h>
#include <cm/CMQueue.h>
#include <cm/CMQueueNode.h>
#include <cm/CMSNMPTrap.h>
#include <cm/CMStream.h>
#include <cm/CMSysConf.h>
#include <cm/CMTrackInfo.h>

#endif
