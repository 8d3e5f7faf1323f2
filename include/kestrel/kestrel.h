#pragma once

// Kestrel: one include line for every exported family of the library.
#include "kestrel/Export.h"

// Data model, codec, dictionary and files.
#include "kestrel/Array.h"
#include "kestrel/ByteBuffer.h"
#include "kestrel/DICOMCodec.h"
#include "kestrel/DICOMObject.h"
#include "kestrel/RTC.h"

// Associations.
#include "kestrel/PDU_Service.h"

// Library frame.
#include "kestrel/CDICOMException.h"
#include "kestrel/NewStudyEvent.h"
#include "kestrel/Notifier.h"
#include "kestrel/Status.h"

// Patient names.
#include "kestrel/CPatientNameParser.h"
