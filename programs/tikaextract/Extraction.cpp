#include "programs/tikaextract/Extraction.h"

#include <cerrno>
#include <cstdio>

#include "platform/SCA_Error.h"
#include "platform/SCA_File.h"

namespace {

constexpr unsigned long kConnectMs = 10000;

struct Advice {
  unsigned long code;
  const char* text;
};

constexpr Advice kAdvice[] = {
    {SCA_ErrorTika422, "it is empty, encrypted or damaged: open it in its own program"},
    {SCA_ErrorTika500, "try another version of Tika, or look for the cause with --verbose"},
    {ETIMEDOUT, "raise --timeout if the document is large"},
    {ECONNRESET, "the server may have run out of memory: raise its heap (--java-heap)"},
    {EPIPE, "the server may have refused the file or run out of memory"},
    {ECONNREFUSED, "check that the server runs and listens on that port"},
    {SCA_ErrorHostName, "check the name given with --server"},
    {ENOENT, "check the name"},
    {EACCES, "check its permissions"},
    {EISDIR, "name the files in it"},
    {ENOSPC, "make room and try again"},
    {SCA_ErrorNotRegularFile, "copy its content into a file first"},
    {SCA_ErrorFileShrank, "try again when nobody writes to it"},
    {SCA_ErrorInvalidData, "check that the server is a Tika server of version 1.x to 3.x"},
};

std::string Explain(unsigned long code) {
  for (const Advice& advice : kAdvice) {
    if (advice.code == code) return std::string(SCA_ErrorText(code)) + "; " + advice.text;
  }
  return std::string(SCA_ErrorText(code)) + "; --verbose shows more";
}

// Text that goes to standard output as it comes.
struct StandardOutput {
  unsigned long error = 0;

  static int Take(const char* text, unsigned long length, unsigned long /*offset*/, void* context) {
    if (std::fwrite(text, 1, length, stdout) == length) return 1;
    static_cast<StandardOutput*>(context)->error = static_cast<unsigned long>(errno);
    return 0;
  }
};

// Text that goes to a file written aside.
struct OutputFile {
  SCA_ReplacementFile file;
  unsigned long error = 0;

  static int Take(const char* text, unsigned long length, unsigned long /*offset*/, void* context) {
    auto* self = static_cast<OutputFile*>(context);
    return self->file.Write(text, length, &self->error);
  }
};

}  // namespace

Extraction::Extraction(const Options& options, SCA_Event* cancel)
    : options_(options),
      cancel_(cancel),
      progress_(options.files.size(), !options.outputDir.empty()),
      server_(options, cancel),
      client_(&settings_, options.serverHost.empty() ? "127.0.0.1" : options.serverHost.c_str(),
              options.serverPort) {
  settings_.SetNetworkTimeout(options.timeoutMs);
  client_.SetCancelEvent(cancel);
}

int Extraction::Run() {
  std::string complaint;
  if (client_.InitDataBuffer() == 0) {
    progress_.PrintLine("tikaextract: not enough memory for the data buffer");
    return kSomeFailed;
  }
  if (!Connect(&complaint)) {
    if (!IsCancelled()) progress_.PrintLine("tikaextract: " + complaint);
    return kNoServer;
  }
  int status = kAllExtracted;
  for (std::size_t i = 0; i < options_.files.size(); ++i) {
    const std::string& file = options_.files[i];
    progress_.Show(i + 1, file);
    const bool isExtracted = ExtractFile(file, &complaint);
    if (IsCancelled() || outputClosed_) return kSomeFailed;
    if (isExtracted) continue;
    progress_.PrintLine("tikaextract: " + file + ": " + complaint);
    status = kSomeFailed;
  }
  return status;
}

// Makes a fresh connection, to a server that is started or waited for if it is the run's own.
bool Extraction::Connect(std::string* complaint) {
  client_.Disconnect();
  if (options_.serverHost.empty()) {
    if (!server_.EnsureReady(complaint)) return false;
    client_.SetPortNumber(server_.Port());
  }
  unsigned long error = 0;
  if (client_.Connect(kConnectMs, &error) != 0) return true;
  *complaint = "no connection to " + std::string(client_.GetServerName()) + ":" +
               std::to_string(client_.GetPortNumber()) + ": " + Explain(error);
  return false;
}

bool Extraction::ExtractFile(const std::string& file, std::string* complaint) {
  if (client_.IsConnected() == 0 && !Connect(complaint)) return false;
  if (!options_.outputDir.empty()) return ExtractToFile(file, complaint);
  StandardOutput output;
  const bool isExtracted = GetText(file, &StandardOutput::Take, &output, &output.error, complaint);
  if (std::fflush(stdout) == 0 && output.error == 0) return isExtracted;
  if (output.error == 0) output.error = static_cast<unsigned long>(errno);
  outputClosed_ = true;
  // A reader that has seen enough is no failure worth a line.
  if (output.error != EPIPE) {
    progress_.PrintLine("tikaextract: cannot write the text to standard output: " +
                        Explain(output.error));
  }
  return false;
}

bool Extraction::ExtractToFile(const std::string& file, std::string* complaint) {
  OutputFile output;
  const std::string path = OutputPath(options_, file);
  bool isExtracted = false;
  if (output.file.Open(path.c_str(), SCA_FileAccess::Default, &output.error) != 0) {
    isExtracted = GetText(file, &OutputFile::Take, &output, &output.error, complaint) &&
                  output.file.Commit(SCA_FileCommit::Fast, &output.error) != 0;
  }
  if (output.error != 0) *complaint = "cannot write '" + path + "': " + Explain(output.error);
  return isExtracted;
}

// Extracts a file into a sink, whose own failure, shown by its error, stops the extraction.
bool Extraction::GetText(const std::string& file, SCA_TikaTextCallback sink, void* context,
                         const unsigned long* sinkError, std::string* complaint) {
  unsigned long textLength = 0;
  unsigned long error = 0;
  if (client_.GetFileText(options_.variant, file.c_str(), nullptr, sink, context, cancel_,
                          &textLength, &error) != 0) {
    return true;
  }
  // The connection may hold half an exchange; the next file gets a fresh one.
  client_.Disconnect();
  if (*sinkError != 0) return false;
  const unsigned long refusal = client_.GetRefusalCode();
  *complaint = refusal != 0 ? std::string(SCA_ErrorText(refusal)) + " before it had read the file"
                            : Explain(error);
  return false;
}
