// Editor benchmark. Opens the book in the story editor and types in it:
//
//   - opening: StoryEditor::setStory on the imported book until the first
//     paint of the window is done (goal: at most 1.5 s; the import itself is
//     not timed). The rest of the book is laid out in the background
//     afterwards; the time until that is done is shown too, and what a
//     keystroke at the start costs meanwhile.
//   - one keystroke in the middle of the book: the key event, the editor's
//     mapping of the changed block back to the model (blocksEdited, applied
//     to the story in AppState as the window does) and the repaint (goal: median at most 16 ms). Enter and Backspace there, and
//     the same keystroke in a plain QTextEdit with Qt's own document layout,
//     for scale.
//   - undo of those edits as the window does it: each taken back in AppState
//     and shown through StoryEditor::applyEdit, last first.
//
// usage: editor_bench [--paragraphs N] [--opens N] [--keys N] [--check] [DIRECTORY]
//
// Wall time throughout: what the user waits for. Without a display set,
// QT_QPA_PLATFORM defaults to offscreen.

#include <CLI/CLI.hpp>

#include <QAbstractTextDocumentLayout>
#include <QApplication>
#include <QKeyEvent>
#include <QTextBlock>
#include <QTextEdit>

#include <cstdio>
#include <stdexcept>
#include <vector>

#include "app/app_state.h"
#include "bench_support.h"
#include "book_generator.h"
#include "editor/flow_layout.h"
#include "editor/story_editor.h"
#include "editor/text_bridge.h"
#include "importers/docx_reader.h"

namespace inkharbour::bench {

namespace {

constexpr double kOpenGoalMs = 1500;
constexpr double kKeyGoalMs = 16;

struct Options {
  int paragraphs = BookShape{}.paragraphs;
  int opens = 3;
  int keys = 50;
  bool check = false;
  std::filesystem::path directory = defaultDirectory();
};

template <typename Work>
double timedMs(Work work) {
  return secondsOf(wallSeconds, work) * 1e3;
}

// Counts the paints of a widget.
class PaintCounter final : public QObject {
 public:
  int paints = 0;

 protected:
  bool eventFilter(QObject*, QEvent* event) override {
    if (event->type() == QEvent::Paint) ++paints;
    return false;
  }
};

void press(QWidget& widget, int key, const QString& text = {}) {
  QKeyEvent down(QEvent::KeyPress, key, Qt::NoModifier, text);
  QKeyEvent up(QEvent::KeyRelease, key, Qt::NoModifier, text);
  QCoreApplication::sendEvent(&widget, &down);
  QCoreApplication::sendEvent(&widget, &up);
}

// One key pressed and everything it causes handled, the repaint included.
double keystrokeMs(QWidget& widget, int key, const QString& text = {}) {
  return timedMs([&] {
    press(widget, key, text);
    QCoreApplication::processEvents();
  });
}

void putCaretInTheMiddle(QTextEdit& editor) {
  const QTextDocument& document = *editor.document();
  QTextBlock block = document.findBlockByNumber(document.blockCount() / 2);
  while (block.isValid() && TextBridge::isAtomic(block)) block = block.next();
  QTextCursor cursor(block);
  cursor.movePosition(QTextCursor::EndOfBlock);
  editor.setTextCursor(cursor);
  editor.ensureCursorVisible();
  QCoreApplication::processEvents();
}

void printRow(const char* label, double bestMs, double medianMs, const char* after = "") {
  std::printf("  %-46s %9.3f %11.3f%s\n", label, bestMs, medianMs, after);
}

void printRow(const char* label, const std::vector<double>& ms, const char* after = "") {
  printRow(label, best(ms), median(ms), after);
}

int run(const Options& options) {
  const auto book = ensureBook(options.directory, BookShape::withParagraphs(options.paragraphs));
  const auto imported = DocxReader::read(book, {});

  StoryEditor editor;
  editor.resize(1000, 800);
  editor.show();
  PaintCounter counter;
  editor.viewport()->installEventFilter(&counter);
  QCoreApplication::processEvents();
  // The edits reach the document as they do in the window.
  AppState state;
  state.newStory();
  const Uuid storyID = *state.selectedStoryID();
  state.replaceStoryContent(storyID, imported.blocks, imported.footnotes);
  std::size_t reported = 0;
  struct Edit {
    std::size_t first;
    std::vector<Block> removed, inserted;
  };
  std::vector<Edit> edits;  // for undo
  QObject::connect(
      &editor, &StoryEditor::blocksEdited,
      [&](std::size_t first, std::size_t removed, const std::vector<Block>& inserted) {
        reported += inserted.size();
        const auto& blocks = state.document().stories.front().blocks;
        const auto at = blocks.begin() + static_cast<std::ptrdiff_t>(first);
        edits.push_back({first, {at, at + static_cast<std::ptrdiff_t>(removed)}, inserted});
        state.replaceBlocks(storyID, first, removed, inserted);
      });

  std::vector<double> open, complete, early;
  for (int i = 0; i < options.opens; ++i) {
    editor.clearStory();
    QCoreApplication::processEvents();
    const double start = wallSeconds();
    const int paintsBefore = counter.paints;
    editor.setStory(imported.blocks, false);
    while (counter.paints == paintsBefore) QCoreApplication::processEvents();
    open.push_back((wallSeconds() - start) * 1e3);
    auto* layout = static_cast<FlowLayout*>(editor.document()->documentLayout());
    // The first opening also types at once, while the book is laid out.
    for (int key = 0; i == 0 && key < 10 && !layout->isComplete(); ++key) {
      early.push_back(keystrokeMs(editor, Qt::Key_A, QStringLiteral("a")));
    }
    while (!layout->isComplete()) QCoreApplication::processEvents();
    complete.push_back((wallSeconds() - start) * 1e3);
  }
  // Back to the book as imported, laid out, for the keystrokes below.
  editor.setStory(imported.blocks, false);
  state.replaceStoryContent(storyID, imported.blocks, imported.footnotes);
  while (!static_cast<FlowLayout*>(editor.document()->documentLayout())->isComplete()) {
    QCoreApplication::processEvents();
  }
  if (editor.blocks() != imported.blocks) {
    throw std::runtime_error("the editor does not show the book as imported");
  }
  edits.clear();

  putCaretInTheMiddle(editor);
  std::vector<double> keys, enters, backspaces;
  for (int i = 0; i < options.keys; ++i)
    keys.push_back(keystrokeMs(editor, Qt::Key_A, QStringLiteral("a")));
  for (int i = 0; i < std::max(1, options.keys / 5); ++i) {
    enters.push_back(keystrokeMs(editor, Qt::Key_Return, QStringLiteral("\r")));
    backspaces.push_back(keystrokeMs(editor, Qt::Key_Backspace));
  }
  if (reported == 0 || editor.blocks().size() != imported.blocks.size() ||
      editor.blocks() != state.document().stories.front().blocks) {
    throw std::runtime_error("the keystrokes were not reported as edits");
  }
  std::vector<double> undos;
  for (; !edits.empty(); edits.pop_back()) {
    const Edit& edit = edits.back();
    undos.push_back(timedMs([&] {
      state.replaceBlocks(storyID, edit.first, edit.inserted.size(), edit.removed);
      editor.applyEdit(edit.first, edit.inserted.size(), edit.removed);
      QCoreApplication::processEvents();
    }));
  }
  if (editor.blocks() != imported.blocks ||
      state.document().stories.front().blocks != imported.blocks) {
    throw std::runtime_error("undoing every edit did not give the book back");
  }

  // For scale: the same keystroke where Qt's own layout places every block.
  QTextEdit plain;
  plain.resize(1000, 800);
  auto* document = new QTextDocument(&plain);
  TextBridge::load(*document, imported.blocks);
  plain.setDocument(document);
  plain.show();
  QCoreApplication::processEvents();
  document->documentLayout()->documentSize();  // finishes Qt's lazy layout, as time would
  putCaretInTheMiddle(plain);
  std::vector<double> plainKeys;
  for (int i = 0; i < std::max(3, options.keys / 5); ++i) {
    plainKeys.push_back(keystrokeMs(plain, Qt::Key_A, QStringLiteral("a")));
  }

  std::printf("Inkharbour editor benchmark\n\n");
  std::printf("book      %s\n", book.c_str());
  std::printf("          %zu blocks; window 1000 x 800, platform %s; peak resident %.0f MiB\n\n",
              imported.blocks.size(), qPrintable(QGuiApplication::platformName()),
              maxResidentKiB() / 1024.0);
  std::printf("wall time                                              best ms   median ms\n");
  char goal[64];
  const bool openMissed = median(open) > kOpenGoalMs;
  std::snprintf(goal, sizeof goal, "   goal <= %.0f ms  %s", kOpenGoalMs, mark(!openMissed));
  printRow("open: setStory until the first paint", open, goal);
  printRow("  until the whole book is laid out", complete);
  if (!early.empty()) printRow("  a keystroke at the start meanwhile", early);
  const bool keyMissed = median(keys) > kKeyGoalMs;
  std::snprintf(goal, sizeof goal, "   goal <= %.0f ms  %s", kKeyGoalMs, mark(!keyMissed));
  printRow("keystroke in the middle, mapped and painted", keys, goal);
  printRow("Enter there", enters);
  printRow("Backspace joining the paragraphs again", backspaces);
  printRow("undo of one of these edits (applyEdit)", undos);
  printRow("keystroke in a QTextEdit with Qt's layout", plainKeys);
  std::printf("\n  opens: %d; keystrokes: %d, of which the goal takes the median\n", options.opens,
              options.keys);
  return options.check && (openMissed || keyMissed) ? 1 : 0;
}

}  // namespace

}  // namespace inkharbour::bench

int main(int argc, char** argv) {
  using namespace inkharbour::bench;
  if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM") && qEnvironmentVariableIsEmpty("DISPLAY") &&
      qEnvironmentVariableIsEmpty("WAYLAND_DISPLAY")) {
    qputenv("QT_QPA_PLATFORM", "offscreen");
  }
  return guarded("editor_bench", [&] {
    Options options;
    CLI::App app{"Times opening the book in the story editor and typing in it.", "editor_bench"};
    addCount(app, "--paragraphs", options.paragraphs, "paragraphs in the generated book");
    addCount(app, "--opens", options.opens, "timed openings of the book");
    addCount(app, "--keys", options.keys, "timed keystrokes in its middle");
    addCheck(app, options.check);
    addDirectory(app, options.directory, "keeps the generated book between runs");
    if (const auto status = parseCommandLine(app, argc, argv)) return *status;
    int qtArgc = 1;
    QApplication application(qtArgc, argv);
    return run(options);
  });
}
