// JDWPKrvDbg: the debugger back end of the Korvane IDE. Including this header
// gives a host every public class of the library.
#pragma once

#include "jdwpkrvdbg/version.h"

#include "jdwpkrvdbg/protocol/ByteStrings.h"
#include "jdwpkrvdbg/protocol/JDWPCommandTable.h"
#include "jdwpkrvdbg/protocol/JDWPMessage.h"
#include "jdwpkrvdbg/protocol/JDWPMessageData.h"
#include "jdwpkrvdbg/protocol/JDWPMessageFactory.h"
#include "jdwpkrvdbg/protocol/JDWPStructs.h"
#include "jdwpkrvdbg/protocol/cIEEE.h"

#include "jdwpkrvdbg/support/NonCopyable.h"
#include "jdwpkrvdbg/support/Pellum.h"
#include "jdwpkrvdbg/support/cHive.h"

#include "jdwpkrvdbg/platform/Clock.h"
#include "jdwpkrvdbg/platform/MessagePump.h"

#include "jdwpkrvdbg/session/JDWPCon.h"
#include "jdwpkrvdbg/session/JDWPFunctions.h"
#include "jdwpkrvdbg/session/JDWPHandler.h"
#include "jdwpkrvdbg/session/JDWPLimits.h"
#include "jdwpkrvdbg/session/PacketHistory.h"
#include "jdwpkrvdbg/session/modMain.h"

#include "jdwpkrvdbg/model/HostEvent.h"
#include "jdwpkrvdbg/model/JXBreakpoint.h"
#include "jdwpkrvdbg/model/JXClass.h"
#include "jdwpkrvdbg/model/JXField.h"
#include "jdwpkrvdbg/model/JXMachine.h"
#include "jdwpkrvdbg/model/JXMachineEvents.h"
#include "jdwpkrvdbg/model/JXMethod.h"
#include "jdwpkrvdbg/model/JXThread.h"
#include "jdwpkrvdbg/model/JXThreadGroup.h"
#include "jdwpkrvdbg/model/JXThreadList.h"
