// kestrel print: prints images on the films of a DICOM printer over one print association: a
// film session, then for each film a film box whose image boxes receive the next images, the
// film printed and deleted; the session deleted at the end. Every answer of the printer is
// printed with its explanation.
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <iostream>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "Commands.h"
#include "ExitCodes.h"
#include "InputFiles.h"
#include "NetOptions.h"
#include "Progress.h"
#include "kestrel/CBasicFilmBox.h"
#include "kestrel/CBasicFilmSession.h"
#include "kestrel/CBasicGrayscaleImageBox.h"
#include "kestrel/CDICOMPrintException.h"
#include "kestrel/CPrintImage.h"
#include "kestrel/CPrinter.h"
#include "kestrel/PDU_Service.h"
#include "kestrel/Status.h"

namespace {

struct PrintOptions {
  NetOptions net;
  std::string host;
  std::string port;
  std::vector<std::string> paths;
  std::string format = "STANDARD\\1,1";
  std::string filmSize;
  std::string orientation;
  std::string magnification;
  std::string medium;
  std::string destination;
  int copies = 1;
  std::string window;  // "C,W"
  int bits = 8;
  uint32_t frame = 1;
};

// How one request ended: answered Success, answered with a warning, refused (a failure
// status), or the exchange broke down (the association is of no more use).
enum class Outcome { kSuccess, kWarning, kRefused, kBroken };

// One line of text, its line ends folded into blanks.
std::string OneLine(const std::string& text) {
  std::string line;
  for (char c : text) {
    if (c != '\r') line += c == '\n' ? ' ' : c;
  }
  while (!line.empty() && line.back() == ' ') line.pop_back();
  return line;
}

// The library's last-error text as it set it, ended by a line end.
void ShowLastError() {
  const std::string text = KESTREL::GetLastErrorText();
  std::cerr << text << (text.empty() || text.back() != '\n' ? "\n" : "");
}

// "C,W" with a width of at least 1.
bool ParseWindow(const std::string& text, CPrintImage& image) {
  size_t comma = text.find(',');
  if (comma == std::string::npos) return false;
  char* end = nullptr;
  double center = std::strtod(text.c_str(), &end);
  if (end != text.c_str() + comma) return false;
  const char* widthText = text.c_str() + comma + 1;
  double width = std::strtod(widthText, &end);
  if (end == widthText || *end || !(width >= 1)) return false;
  image.UseWindow = true;
  image.WindowCenter = center;
  image.WindowWidth = width;
  return true;
}

// An image converted for a film, with the file it came from.
struct Sheet {
  std::string path;
  uint64_t bytes;
  CPrintImage image;
};

class FilmPrinter {
 public:
  FilmPrinter(const PrintOptions& options, PDU_Service* pdu, std::vector<InputFile> files,
              const CPrintImage& conversion)
      : options_(options),
        pdu_(pdu),
        files_(std::move(files)),
        conversion_(conversion),
        progress_("print", files_.size(), options.net.quiet) {}

  int Run();

 private:
  Outcome Request(const std::string& what, const std::function<int()>& request);
  void ReportException(const std::string& what, KESTREL::CDICOMPrintException& exception);
  void ShowPrinter();
  bool CreateSession();
  // The next images that convert, at most `count`; files that do not are reported.
  std::vector<Sheet> NextImages(size_t count);
  void PrintFilm(std::vector<Sheet>& images);
  bool SetImages(CBasicFilmBox& film, std::vector<Sheet>& images);
  void Finish(const std::string& path, uint64_t bytes, bool failed);
  void FailRemaining();

  const PrintOptions& options_;
  PDU_Service* pdu_;
  std::vector<InputFile> files_;
  CPrintImage conversion_;
  Progress progress_;
  CBasicFilmSession session_;
  size_t next_ = 0;
  int films_ = 0;
  int worst_ = kExitOk;
  bool broken_ = false;
};

Outcome FilmPrinter::Request(const std::string& what, const std::function<int()>& request) {
  try {
    if (!request()) {
      ShowLastError();
      worst_ = WorstExit(worst_, kExitExchangeFailed);
      broken_ = !pdu_->IsAssociated();
      return broken_ ? Outcome::kBroken : Outcome::kRefused;
    }
    if (!options_.net.quiet)
      std::printf("%s: %s\n", what.c_str(), KESTREL::InterpretDimseStatus(0).c_str());
    return Outcome::kSuccess;
  } catch (KESTREL::CDICOMPrintException& exception) {
    ReportException(what, exception);
    std::string text;
    if (exception.GetStatusText(text) == KESTREL::DIMSE_STATUS_WARNING) return Outcome::kWarning;
    worst_ = WorstExit(worst_, kExitExchangeFailed);
    return Outcome::kRefused;
  }
}

// The status line, then the status class's sentence and the interpretation, each on a line of
// its own; warnings on standard output, everything else on standard error.
void FilmPrinter::ReportException(const std::string& what,
                                  KESTREL::CDICOMPrintException& exception) {
  std::string classText;
  bool warning = exception.GetStatusText(classText) == KESTREL::DIMSE_STATUS_WARNING;
  if (warning && options_.net.quiet) return;
  FILE* out = warning ? stdout : stderr;
  std::fprintf(out, "%s: %s\n  %s\n  %s\n", what.c_str(),
               KESTREL::InterpretDimseStatus(exception.Status).c_str(), classText.c_str(),
               exception.Interpretation.c_str());
  if (!exception.ErrorComment.empty())
    std::fprintf(out, "  Error Comment: %s\n", exception.ErrorComment.c_str());
  if (!exception.OffendingElements.empty())
    std::fprintf(out, "  Offending Elements: %s\n", exception.OffendingElements.c_str());
}

void FilmPrinter::Finish(const std::string& path, uint64_t bytes, bool failed) {
  if (options_.net.verbose) std::printf("%s: %s\n", path.c_str(), failed ? "failed" : "printed");
  progress_.Done(bytes, failed);
}

void FilmPrinter::FailRemaining() {
  for (; next_ < files_.size(); ++next_) progress_.Done(0, true);
}

// The printer's state first: a printer that is down or out of film says so here.
void FilmPrinter::ShowPrinter() {
  CPrinter printer;
  if (!printer.Get(pdu_)) {
    std::cerr << "Printer:NGet: the printer did not answer\n";
    worst_ = WorstExit(worst_, kExitExchangeFailed);
    broken_ = !pdu_->IsAssociated();
    return;
  }
  if (printer.GetStatus() != 0) {
    std::cerr << "Printer:NGet: " << printer.GetStatusLine() << '\n';
    return;
  }
  if (!options_.net.quiet)
    std::printf("Printer:NGet: %s\nPrinter Status: %s\nPrinter Status Info: %s\n",
                printer.GetStatusLine().c_str(), printer.GetPrinterStatus().c_str(),
                printer.GetPrinterStatusInfo().c_str());
}

bool FilmPrinter::CreateSession() {
  session_.NumberOfCopies = options_.copies;
  session_.MediumType = options_.medium;
  session_.FilmDestination = options_.destination;
  Outcome outcome = Request("BasicFilmSession:NCreate", [&] { return session_.Create(pdu_); });
  return (outcome == Outcome::kSuccess || outcome == Outcome::kWarning) &&
         !session_.GetSOPInstanceUID().IsEmpty();
}

std::vector<Sheet> FilmPrinter::NextImages(size_t count) {
  std::vector<Sheet> images;
  for (; images.size() < count && next_ < files_.size(); ++next_) {
    const InputFile& file = files_[next_];
    CPrintImage image = conversion_;
    if (!file.error.empty() || !image.Load(file.path)) {
      std::cerr << file.path << ": "
                << OneLine(file.error.empty() ? KESTREL::GetLastErrorText() : file.error) << '\n';
      worst_ = WorstExit(worst_, kExitLocalFailure);
      progress_.Done(0, true);
      continue;
    }
    images.push_back({file.path, file.bytes, std::move(image)});
  }
  return images;
}

// Fills the image boxes in order. False when the printer refused an image or has too few
// boxes for them; the film is then not printed.
bool FilmPrinter::SetImages(CBasicFilmBox& film, std::vector<Sheet>& images) {
  bool complete = true;
  for (size_t i = 0; i < images.size(); ++i) {
    const std::string& path = images[i].path;
    if (i >= film.GetImageBoxCount() || broken_) {
      if (!broken_)
        std::cerr << path << ": the printer made " << film.GetImageBoxCount()
                  << " image boxes on film " << films_ << "; not printed\n";
      worst_ = WorstExit(worst_, kExitExchangeFailed);
      Finish(path, 0, true);
      complete = false;
      continue;
    }
    CBasicGrayscaleImageBox box(film.GetImageBoxUID(static_cast<uint32_t>(i)),
                                static_cast<uint16_t>(i + 1));
    box.MagnificationType = options_.magnification;
    std::string what = "BasicGrayscaleImageBox:NSet " + std::to_string(i + 1) + " (" + path + ")";
    Outcome outcome = Request(what, [&] { return box.Set(pdu_, images[i].image); });
    bool failed = outcome == Outcome::kRefused || outcome == Outcome::kBroken;
    complete = complete && !failed;
    Finish(path, images[i].bytes, failed);
  }
  return complete;
}

void FilmPrinter::PrintFilm(std::vector<Sheet>& images) {
  ++films_;
  const std::string film = " (film " + std::to_string(films_) + ")";
  CBasicFilmBox box;
  box.ImageDisplayFormat = options_.format;
  box.FilmSizeID = options_.filmSize;
  box.FilmOrientation = options_.orientation;
  box.MagnificationType = options_.magnification;
  Outcome created =
      Request("BasicFilmBox:NCreate" + film, [&] { return box.Create(pdu_, session_); });
  if (created == Outcome::kRefused || created == Outcome::kBroken ||
      box.GetSOPInstanceUID().IsEmpty()) {
    for (const Sheet& sheet : images) Finish(sheet.path, 0, true);
    return;
  }
  if (SetImages(box, images) && !broken_)
    Request("BasicFilmBox:NAction" + film, [&] { return box.Print(pdu_); });
  if (!broken_) Request("BasicFilmBox:NDelete" + film, [&] { return box.Delete(pdu_); });
}

int FilmPrinter::Run() {
  ShowPrinter();
  if (!broken_ && CreateSession()) {
    const size_t boxes = static_cast<size_t>(CBasicFilmBox::ImageBoxCount(options_.format));
    while (!broken_ && next_ < files_.size()) {
      auto images = NextImages(boxes);
      if (!images.empty()) PrintFilm(images);
    }
    if (!broken_) Request("BasicFilmSession:NDelete", [&] { return session_.Delete(pdu_); });
  }
  FailRemaining();
  progress_.Finish();
  return worst_;
}

int RunPrint(const PrintOptions& options) {
  CPrintImage conversion;
  conversion.Bits = options.bits;
  conversion.Frame = options.frame - 1;
  if (!options.window.empty() && !ParseWindow(options.window, conversion)) {
    std::cerr << "kestrel print: --window takes CENTER,WIDTH with a width of at least 1\n";
    return kExitUsage;
  }
  if (CBasicFilmBox::ImageBoxCount(options.format) == 0) {
    std::cerr << "kestrel print: --format must be STANDARD\\C,R, ROW\\a,b,... or COL\\a,b,...\n";
    return kExitUsage;
  }
  std::vector<InputFile> files;
  for (const std::string& path : options.paths) CollectInputFiles(path, files);
  ApplyTimeout(options.net);
  KESTREL::KESTREL_STATUS status = KESTREL::KESTREL_STATUS_OK;
  PDU_Service* pdu = CBasicFilmSession::CreateAssociation(
      options.host, options.port, options.net.callingAE, options.net.calledAE, &status);
  if (!pdu) {
    ShowLastError();
    return ExitCodeOf(status);
  }
  if (options.net.verbose)
    std::printf("print %s %s (%s -> %s): associated\n", options.host.c_str(), options.port.c_str(),
                options.net.callingAE.c_str(), options.net.calledAE.c_str());
  int code = FilmPrinter(options, pdu, std::move(files), conversion).Run();
  CBasicFilmSession::ReleaseAssociation(pdu);
  return code;
}

}  // namespace

void AddPrintCommand(CLI::App& app, int& exitCode) {
  auto options = std::make_shared<PrintOptions>();
  CLI::App* cmd = app.add_subcommand(
      "print",
      "print images on the films of a DICOM printer (film session, film boxes, image boxes)");
  AddNetOptions(cmd, options->net, true);
  cmd->add_option("--format", options->format,
                  "image display format, STANDARD\\C,R (columns, rows), ROW\\a,b,... or "
                  "COL\\a,b,... (default STANDARD\\1,1)");
  cmd->add_option("--film-size", options->filmSize, "film size ID (8INX10IN, 14INX17IN, ...)");
  cmd->add_option("--orientation", options->orientation, "film orientation")
      ->check(CLI::IsMember({"PORTRAIT", "LANDSCAPE"}));
  cmd->add_option("--copies", options->copies, "number of copies of each film (default 1)")
      ->check(CLI::Range(1, 99));
  cmd->add_option("--window", options->window,
                  "window CENTER,WIDTH for every image (default: the image's own window, else "
                  "its full range)");
  cmd->add_option("--bits", options->bits, "bits per printed pixel, 8 or 12 (default 8)")
      ->check(CLI::IsMember({8, 12}));
  cmd->add_option("--frame", options->frame, "frame of multi-frame images (default 1)")
      ->check(CLI::Range(uint32_t{1}, UINT32_MAX));
  cmd->add_option("--magnification", options->magnification,
                  "magnification type (REPLICATE, BILINEAR, CUBIC, NONE)");
  cmd->add_option("--medium", options->medium, "medium type (PAPER, CLEAR FILM, BLUE FILM)");
  cmd->add_option("--destination", options->destination, "film destination (MAGAZINE, PROCESSOR)");
  cmd->add_option("HOST", options->host, "host name or address")->required();
  cmd->add_option("PORT", options->port, "port number or service name")->required();
  cmd->add_option("FILE", options->paths, "image files or directories")->required();
  cmd->callback([options, &exitCode]() { exitCode = RunPrint(*options); });
}
