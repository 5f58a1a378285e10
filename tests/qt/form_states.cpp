#include "tests/qt/form_states.h"

#include <utility>
#include <vector>

namespace zunto::testing {

namespace {

/// What each state shows, where it differs.
struct Shown {
  const char* name;
  bool isAnalyzed;
  bool isBusy;
  bool isSaved;
  bool isProblem;
  double progress;
  const char* status;
};

constexpr std::array<Shown, allFormStates.size()> shownStates{
    {{"empty", false, false, false, false, 0, "Ready. Processing and browser access stay on this Mac."},
     {"analyzed", true, false, false, false, 100,
      "Analysis complete. Choose an output and save it to your Mac."},
     {"working", true, true, false, false, 42.5, "Downloading video…"},
     {"failed", true, false, false, true, 60,
      "The site does not offer this video here. It can be watched in other countries, or by those who have "
      "logged in: choose the browser under Access in which you have, and analyze the link again."},
     {"finished", true, false, true, false, 100,
      "Saved to /home/somebody/Videos/A walk along the river.mp4"}}};

const Shown& shownIn(FormState state) { return shownStates.at(static_cast<std::size_t>(state)); }

}  // namespace

std::string nameOf(FormState state) { return shownIn(state).name; }

void show(ImportForm& form, FormState state) {
  const Shown& shown = shownIn(state);
  form.urlField.setText(shown.isAnalyzed ? "https://media.example/watch?v=abcdefgh" : "");
  form.titleLabel.setText(shown.isAnalyzed ? "A walk along the river in the early morning"
                                           : "Paste a YouTube or Bilibili link to begin.");
  form.detailLabel.setText(shown.isAnalyzed ? "Duration: 12:34" : "Processing stays on this Mac.");
  form.qualityPopup.setItems(shown.isAnalyzed ? std::vector<std::string>{"1080p", "720p", "480p"}
                                              : std::vector<std::string>{"Analyze first"});
  form.subtitlePopup.setItems({shown.isAnalyzed ? "English — Original · Recommended" : "No subtitle tracks"});
  for (Control* input : std::initializer_list<Control*>{&form.urlField, &form.pasteButton,
                                                        &form.analyzeButton, &form.browserPopup}) {
    input->setEnabled(!shown.isBusy);
  }
  form.startButton.setEnabled(shown.isAnalyzed && !shown.isBusy);
  form.cancelButton.setHidden(!shown.isBusy);
  form.revealButton.setHidden(!shown.isSaved);
  form.progress.setValue(shown.progress);
  form.statusLabel.setProblem(shown.isProblem);
  form.statusLabel.setText(shown.status);
}

void chooseSubtitles(ImportForm& form) {
  form.modePopup.selectIndex(static_cast<std::size_t>(OutputMode::subtitle));
  form.qualityPopup.setHidden(true);
  form.subtitlePopup.setHidden(false);
  form.subtitleFormatPopup.setHidden(false);
}

void fillToTheBrim(ImportForm& form) {
  const std::string folder = "a-folder-with-a-rather-long-name/";
  form.urlField.setText("https://media.example/watch?" + std::string(400, 'v'));
  form.titleLabel.setText("A title that nobody could ever read in one go <b>because</b> it goes on and on, " +
                          std::string(200, 'W'));
  form.detailLabel.setText("Duration: 153722867280912930:07");
  std::vector<std::string> qualities;
  for (int i = 0; i < 60; ++i) qualities.push_back(std::to_string(144 * (60 - i)) + "p60 HDR (Premium)");
  form.qualityPopup.setItems(std::move(qualities));
  std::vector<std::string> tracks;
  for (int i = 0; i < 200; ++i) {
    tracks.push_back("Chinese (Simplified, translated by a machine from English) " + std::to_string(i) + " " +
                     std::string(static_cast<std::size_t>(i), 'w') + " — Original · Auto-generated");
  }
  form.subtitlePopup.setItems(std::move(tracks));
  std::string path = "Saved to /home/somebody/";
  for (int i = 0; i < 20; ++i) path += folder;
  form.statusLabel.setText(path + "A title that nobody could ever read.mp4");
}

}  // namespace zunto::testing
