#include "import_world.h"

#include <gtest/gtest.h>

#include <array>

#include "platform/system_error.h"

namespace zunto::testing {

std::string jobJson(const std::string& jobId, const std::string& status, const std::string& members) {
  return R"({"jobId":")" + jobId + R"(","status":")" + status + "\"" + (members.empty() ? "" : ",") +
         members + "}";
}

ImportWorld::ImportWorld() {
  files.addFolder("/home/user/Videos");
  http.onMovingFile([this](const TemporaryFileRecord& file, const std::filesystem::path& destination) {
    if (files.exists(destination)) throw SystemError("The file exists already.");
    files.addFile(destination, file.content);
  });
  controller = DownloaderWindowController::create(
      helper.function(), Url::parse("http://127.0.0.1:43127").value(),
      {*executor, http, files, windowSystem, application, panels, pasteboard, beeper, workspace});
}

bool ImportWorld::inputsAreEnabled() const {
  return form().urlField.isEnabled() && form().pasteButton.isEnabled() && form().analyzeButton.isEnabled() &&
         form().browserPopup.isEnabled();
}

bool ImportWorld::inputsAreDisabled() const {
  return !form().urlField.isEnabled() && !form().pasteButton.isEnabled() &&
         !form().analyzeButton.isEnabled() && !form().browserPopup.isEnabled();
}

void ImportWorld::runUntil(const std::function<bool()>& reached) {
  while (!reached()) ASSERT_TRUE(clock.runOneTurn()) << "nothing more happens";
}

void ImportWorld::offerToken(const std::string& token) {
  http.answerAlways("GET", "/health",
                    {.headers = {{"X-ZUNTO-Session-Token", token}}, .body = R"({"status":"ok"})"});
}

void ImportWorld::acceptProbe() {
  http.answer("POST", "/probe", {.status = 202, .body = jobJson("probe-1", "queued")});
}

void ImportWorld::acceptJob(const std::string& jobId) {
  http.answer("POST", "/jobs", {.status = 202, .body = jobJson(jobId, "queued")});
}

void ImportWorld::answerPoll(const std::string& jobId, const std::string& status,
                             const std::string& members) {
  http.answer("GET", "/jobs/" + jobId, {.body = jobJson(ownIdentifier(jobId), status, members)});
}

void ImportWorld::keepAnsweringPoll(const std::string& jobId, const std::string& status,
                                    const std::string& members) {
  http.answerAlways("GET", "/jobs/" + jobId, {.body = jobJson(ownIdentifier(jobId), status, members)});
}

std::size_t ImportWorld::requestCount(const std::string& method, const std::string& path) const {
  return http.requests(method, path).size();
}

void ImportWorld::beReady() {
  offerToken();
  controller->present(std::nullopt);
  settle();
  ASSERT_EQ(fields().sessionToken, "token-1");
}

void ImportWorld::analyzed(const std::string& members) {
  beReady();
  form().urlField.userEdited(link);
  acceptProbe();
  answerPoll("probe-1", "completed", members);
  clickAnalyze();
  ASSERT_TRUE(fields().analyzedJob);
}

void ImportWorld::downloading() {
  acceptJob();
  keepAnsweringPoll("job-1", "downloading");
  clickDownload();
  ASSERT_EQ(fields().activeJobId, "job-1");
}

void ImportWorld::atSavePanel(const std::string& members) {
  acceptJob();
  answerPoll("job-1", "completed", members);
  clickDownload();
  ASSERT_EQ(panels.openPanels(), 1U);
}

void ImportWorld::clickAnalyze() {
  form().analyzeButton.userClicked();
  settle();
}

void ImportWorld::clickDownload() {
  form().startButton.userClicked();
  settle();
}

void ImportWorld::clickCancel() {
  form().cancelButton.userClicked();
  settle();
}

}  // namespace zunto::testing
