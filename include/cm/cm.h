// Everything a component or a host process needs: libcm and, through it, libzrcore and libzr.
#ifndef CM_CM_H
#define CM_CM_H

#include <zr/zr.h>
#include <zrcore/zrcore.h>

#include <cm/CMComponent.h>
#include <cm/CMComponentConfiguration.h>
#include <cm/CMComponentInfo.h>
#include <cm/CMComponentManager.h>
#include <cm/CMComponentStatus.h>
#include <cm/CMExporter.h>
#include <cm/CMFileLog.h>
#include <cm/CMFileStream.h>
#include <cm/CMFirewireStream.h>
#include <cm/CMFormatObjectMap.h>
#include <cm/CMFrame.h>
#include <cm/CMImporter.h>
#include <cm/CMLogger.h>
#include <cm/CMMetaData.h>
#include <cm/CMNetworkLog.h>
#include <cm/CMNotification.h>
#include <cm/CMPluginStream.h>
#include <cm/CMQueue.h>
#include <cm/CMQueueNode.h>
#include <cm/CMQueueRW.h>
#include <cm/CMRTP.h>
#include <cm/CMRTSP.h>
#include <cm/CMSDP.h>
#include <cm/CMSNMPTrap.h>
#include <cm/CMStream.h>
#include <cm/CMSysConf.h>
#include <cm/CMTrackInfo.h>
#include <cm/CMVersion.h>

#endif
