// The names of SOP classes shown to people in the unsupported-objects report. The texts keep
// their mixed forms ("Standalone Curve" beside "Stand-alone Overlay"); users know them so.
#include <string>

#include "kestrel/CDicomDirectory.h"

namespace {

struct Description {
  const char* uid;
  const char* text;
};

// SOP class UIDs of PS3.4 Annex B (storage) and H (print), first match wins.
constexpr Description kDescriptions[] = {
    {"1.2.840.10008.5.1.4.1.1.1", "CR Image"},
    {"1.2.840.10008.5.1.4.1.1.2", "CT Image"},
    {"1.2.840.10008.5.1.1.30", "Hardcopy Color Image"},
    {"1.2.840.10008.5.1.1.29", "Hardcopy Grayscale Image"},
    {"1.2.840.10008.5.1.4.1.1.4", "MR Image"},
    {"1.2.840.10008.5.1.4.1.1.4.1", "Enhanced MR Image"},
    {"1.2.840.10008.5.1.4.1.1.4.2", "MR Spectroscopy"},
    {"1.2.840.10008.5.1.4.1.1.66", "Raw Data"},
    {"1.2.840.10008.5.1.4.1.1.20", "NM Image"},
    {"1.2.840.10008.5.1.4.1.1.128", "PET Image"},
    {"1.2.840.10008.5.1.4.1.1.481.2", "RT Dose"},
    {"1.2.840.10008.5.1.4.1.1.481.1", "RT Image"},
    {"1.2.840.10008.5.1.4.1.1.481.5", "RT Plan"},
    {"1.2.840.10008.5.1.4.1.1.481.3", "RT Structure Set"},
    {"1.2.840.10008.5.1.4.1.1.481.4", "RT Beams Treatment Record"},
    {"1.2.840.10008.5.1.4.1.1.481.6", "RT Brachy Treatment Record"},
    {"1.2.840.10008.5.1.4.1.1.481.7", "RT Treatment Summary Record"},
    {"1.2.840.10008.5.1.4.1.1.7", "SC Image"},
    {"1.2.840.10008.5.1.4.1.1.7.1", "Multi-frame Single Bit SC Image"},
    {"1.2.840.10008.5.1.4.1.1.7.2", "Multi-frame Grayscale Byte SC Image"},
    {"1.2.840.10008.5.1.4.1.1.7.3", "Multi-frame Grayscale Word SC Image"},
    {"1.2.840.10008.5.1.4.1.1.7.4", "Multi-frame True Color SC Image"},
    {"1.2.840.10008.5.1.4.1.1.9", "Standalone Curve"},
    {"1.2.840.10008.5.1.4.1.1.9.1.1", "12-lead ECG Waveform"},
    {"1.2.840.10008.5.1.4.1.1.9.1.2", "General ECG Waveform"},
    {"1.2.840.10008.5.1.4.1.1.9.1.3", "Ambulatory ECG Waveform"},
    {"1.2.840.10008.5.1.4.1.1.9.2.1", "Hemodynamic Waveform"},
    {"1.2.840.10008.5.1.4.1.1.9.3.1", "Cardiac Electrophysiology Waveform"},
    {"1.2.840.10008.5.1.4.1.1.9.4.1", "Basic Voice Audio Waveform"},
    {"1.2.840.10008.5.1.4.1.1.10", "Stand-alone Modality LUT"},
    {"1.2.840.10008.5.1.4.1.1.8", "Stand-alone Overlay"},
    {"1.2.840.10008.5.1.4.1.1.11", "Stand-alone VOI Lut"},
    {"1.2.840.10008.5.1.4.1.1.11.1", "Grayscale Softcopy Presentation State (PR)"},
    {"1.2.840.10008.5.1.4.1.1.129", "PET Curve Storage"},
    {"1.2.840.10008.5.1.1.27", "Stored Print"},
    {"1.2.840.10008.5.1.4.1.1.6.1", "US Image"},
    {"1.2.840.10008.5.1.4.1.1.3.1", "US Multi-frame Image"},
    {"1.2.840.10008.5.1.4.1.1.12.1", "XA Image"},
    {"1.2.840.10008.5.1.4.1.1.12.2", "RF Image"},
    {"1.2.840.10008.5.1.4.1.1.1.1", "DX (For Presentation) Image"},
    {"1.2.840.10008.5.1.4.1.1.1.1.1", "DX (For Processing) Image"},
    {"1.2.840.10008.5.1.4.1.1.1.2", "MG (For Presentation) Image"},
    {"1.2.840.10008.5.1.4.1.1.1.2.1", "MG (For Processing) Image"},
    {"1.2.840.10008.5.1.4.1.1.1.3", "Digital Intra-Oral X-Ray (For Presentation)"},
    {"1.2.840.10008.5.1.4.1.1.1.3.1", "Digital Intra-Oral X-Ray (For Processing)"},
    {"1.2.840.10008.5.1.4.1.1.77.1.1", "VL Endoscopic Image"},
    {"1.2.840.10008.5.1.4.1.1.77.1.2", "VL Microscopic Image"},
    {"1.2.840.10008.5.1.4.1.1.77.1.3", "VL Slide Coordinates Microscopic Image"},
    {"1.2.840.10008.5.1.4.1.1.77.1.4", "VL Photographic Image"},
    {"1.2.840.10008.5.1.4.1.1.88.11", "Basic Text SR"},
    {"1.2.840.10008.5.1.4.1.1.88.22", "Enhanced SR"},
    {"1.2.840.10008.5.1.4.1.1.88.33", "Comprehensive SR"},
    {"1.2.840.10008.5.1.4.1.1.88.50", "Mammography CAD SR"},
    {"1.2.840.10008.5.1.4.1.1.88.65", "Chest CAD SR"},
    {"1.2.840.10008.5.1.4.1.1.88.59", "Key Object Selection"},
    {"1.2.840.10008.5.1.4.1.1.5", "NM (retired)"},
    {"1.2.840.10008.5.1.4.1.1.6", "US (retired)"},
    {"1.2.840.10008.5.1.4.1.1.3", "US Multi-frame (retired)"},
    {"1.2.840.10008.5.1.4.1.1.12.3", "XA Bi-plane Image (retired)"},
};

}  // namespace

std::string CDicomDirectory::GetSOPClassDescription(const std::string& uid) {
  for (const Description& row : kDescriptions)
    if (uid == row.uid) return row.text;
  return "Unknown(" + uid + ")";
}
