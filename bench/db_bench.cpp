// The image database at the scale of a busy day: adding, looking up by SOP Instance UID and
// updating 10,000 Image rows through CImageSet, on SQLite (a file in $TMPDIR) and on PostgreSQL
// (the server of KESTREL_TEST_PG; `eval "$(scripts/pg.sh start --durable)"` starts one). Each
// benchmark runs exactly 10,000 iterations, one row each, in the order added, looked up,
// updated. Every write is its own transaction, as the storing code does it.
#include <benchmark/benchmark.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <map>
#include <memory>
#include <string>

#include "kestrel/CDatabase.h"
#include "kestrel/DatabaseSetup.h"
#include "kestrel/RecordSets.h"
#include "kestrel/Status.h"

namespace {

constexpr int kRows = 10000;

std::string Uid(int i) { return "1.2.826.0.1.3680043.2.1125.1." + std::to_string(i); }

// One fresh database per product for the whole run.
class BenchDatabase {
 public:
  explicit BenchDatabase(const std::string& product) {
    if (product == "SQLite") {
      const char* tmp = std::getenv("TMPDIR");
      file_ = std::string(tmp && *tmp ? tmp : "/tmp") + "/kestrel-db-bench-" +
              std::to_string(getpid()) + ".db";
      connect_ = "DRIVER=SQLite3;Database=" + file_ + ";";
    } else {
      const char* server = std::getenv("KESTREL_TEST_PG");
      if (!server || !*server) {
        error_ = "KESTREL_TEST_PG is not set";
        return;
      }
      server_ = std::string(server) + "Database=postgres;";
      name_ = "kestrel_bench_" + std::to_string(getpid());
      CDatabase admin;
      admin.Open(server_);
      admin.ExecuteSQL("CREATE DATABASE " + name_);
      connect_ = std::string(server) + "Database=" + name_ + ";";
    }
    database_.Open(connect_);
    if (!KESTREL::CreateImageTables(database_)) error_ = KESTREL::GetLastErrorText();
  }
  ~BenchDatabase() {
    database_.Close();
    if (!file_.empty()) {
      for (const char* suffix : {"", "-wal", "-shm"}) std::remove((file_ + suffix).c_str());
    }
    if (!name_.empty()) {
      try {
        CDatabase admin;
        admin.Open(server_);
        admin.ExecuteSQL("DROP DATABASE IF EXISTS " + name_ + " WITH (FORCE)");
      } catch (const std::exception&) {
      }
    }
  }
  CDatabase& database() { return database_; }
  const std::string& error() const { return error_; }
  int added = 0;

 private:
  std::string file_;
  std::string server_;
  std::string name_;
  std::string connect_;
  std::string error_;
  CDatabase database_;
};

// Dropped by main before it returns: the PostgreSQL driver cannot connect any more once the
// process has begun to exit (its TLS library is torn down by then).
std::map<std::string, std::unique_ptr<BenchDatabase>> databases;

BenchDatabase& DatabaseFor(const std::string& product) {
  auto& slot = databases[product];
  if (!slot) slot = std::make_unique<BenchDatabase>(product);
  return *slot;
}

void Fill(CImageSet& set, int i) {
  set.SOPInstanceUID = Uid(i);
  set.SeriesInstanceUID = "1.2.826.0.1.3680043.2.1125.2." + std::to_string(i / 100);
  set.StudyInstanceUID = "1.2.826.0.1.3680043.2.1125.3." + std::to_string(i / 1000);
  set.Modality = "CT";
  set.SliceThickness = "1.25";
  set.InstanceNumber = std::to_string(i % 100 + 1);
  set.ImagePositionPatient = "-250\\-250\\" + std::to_string(i);
  set.ImageOrientationPatient = "1\\0\\0\\0\\1\\0";
  set.SamplesPerPixel = "1";
  set.PhotometricInterpretation = "MONOCHROME2";
  set.Rows = "512";
  set.Columns = "512";
  set.PixelSpacing = "0.488\\0.488";
  set.BitsAllocated = "16";
  set.BitsStored = "12";
  set.HighBit = "11";
  set.PixelRepresentation = "0";
  set.TransferSyntax = "1.2.840.10008.1.2.1";
  set.SOPClassUID = "1.2.840.10008.5.1.4.1.1.2";
  set.Manufacturer = "Kestrel";
  set.SeriesNumber = std::to_string(i / 100);
  set.ImageType = "ORIGINAL\\PRIMARY\\AXIAL";
  set.FrameOfReferenceUID = "1.2.826.0.1.3680043.2.1125.4";
}

void Add(benchmark::State& state, const std::string& product) {
  BenchDatabase& db = DatabaseFor(product);
  if (!db.error().empty()) return state.SkipWithError(db.error().c_str());
  CImageSet set(&db.database());
  set.Filter = "1 = 0";  // opened to write, not to read
  if (!set.Open()) return state.SkipWithError(KESTREL::GetLastErrorText().c_str());
  for (auto _ : state) {
    set.AddNew();
    Fill(set, db.added);
    if (!set.Update()) return state.SkipWithError(set.ErrorText.c_str());
    ++db.added;
  }
  state.SetItemsProcessed(state.iterations());
}

void LookUp(benchmark::State& state, const std::string& product) {
  BenchDatabase& db = DatabaseFor(product);
  if (!db.error().empty()) return state.SkipWithError(db.error().c_str());
  if (db.added < kRows) return state.SkipWithError("run the Add benchmark first");
  int i = 0;
  for (auto _ : state) {
    CImageSet set(&db.database());
    set.Filter = "[SOPInstanceUID] = '" + Uid(i++ % kRows) + "'";
    if (!set.Open() || set.IsEOF()) return state.SkipWithError("row not found");
    benchmark::DoNotOptimize(set.Rows);
  }
  state.SetItemsProcessed(state.iterations());
}

void UpdateRows(benchmark::State& state, const std::string& product) {
  BenchDatabase& db = DatabaseFor(product);
  if (!db.error().empty()) return state.SkipWithError(db.error().c_str());
  if (db.added < kRows) return state.SkipWithError("run the Add benchmark first");
  int i = 0;
  for (auto _ : state) {
    CImageSet set(&db.database());
    set.Filter = "[SOPInstanceUID] = '" + Uid(i % kRows) + "'";
    if (!set.Open() || set.IsEOF()) return state.SkipWithError("row not found");
    set.Edit();
    set.TransferSyntax = "1.2.840.10008.1.2.4.90";
    set.LossyImageCompression = "00";
    if (!set.Update()) return state.SkipWithError(set.ErrorText.c_str());
    ++i;
  }
  state.SetItemsProcessed(state.iterations());
}

void Register() {
  for (const char* product : {"SQLite", "PostgreSQL"}) {
    const std::string name = product;
    benchmark::RegisterBenchmark(("ImageAdd/" + name).c_str(), Add, name)
        ->Iterations(kRows)
        ->UseRealTime()
        ->Unit(benchmark::kMicrosecond);
    benchmark::RegisterBenchmark(("ImageLookUpByUID/" + name).c_str(), LookUp, name)
        ->Iterations(kRows)
        ->UseRealTime()
        ->Unit(benchmark::kMicrosecond);
    benchmark::RegisterBenchmark(("ImageUpdate/" + name).c_str(), UpdateRows, name)
        ->Iterations(kRows)
        ->UseRealTime()
        ->Unit(benchmark::kMicrosecond);
  }
}

}  // namespace

int main(int argc, char** argv) {
  Register();
  benchmark::Initialize(&argc, argv);
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  databases.clear();
  return 0;
}
