"""docs/log.md is current, and scripts/make-log-page understands what it reads."""

import unittest

from script_module import SCRIPTS, load_script

make_log_page = load_script("make-log-page")

SOURCE = r'''
void Free(int i) {
    AIT_LOG(4, "free %d\r\n", i);
}

int CThing::Step(LogAs AitLogName,
                 int level) {
    AIT_LOG(level, "a | b");
}

bool CThing::Start() {
    AIT_LOG_AS("StartAll");
    if (!Free(1)) {
        AIT_LOG(1,
                "one "
                "text", 2);
    }
}

class Image {
  public:
    static AIT_LOG_AS("Update");
    bool Load(const char* path) {
        AIT_LOG(3, "file %s", path);
    }
};

void* pThread::Run(void* self) {
    AIT_LOG(5, text, self);
}
'''


class LogPage(unittest.TestCase):
    def test_the_page_is_current(self):
        """Names, levels and texts are known to those who search field logs."""
        page = (SCRIPTS.parent / "docs/log.md").read_text()
        self.assertEqual(page.partition(make_log_page.MARK)[2].split("\n"),
                         make_log_page.make_lines().split("\n"))

    def test_every_line_of_the_sources_is_on_it(self):
        calls = sum(path.read_text().count("AIT_LOG(") for folder in make_log_page.FOLDERS
                    for path in (SCRIPTS.parent / folder).glob("*.cpp"))
        rows = [row for row in make_log_page.make_lines().split("\n")
                if row.startswith("| ") and not row.startswith("| name")]
        self.assertEqual(len(rows), calls)

    def test_a_line_shows_its_operation_its_level_and_its_text(self):
        self.assertEqual(list(make_log_page.named_lines(SOURCE)), [
            ("Free", "4", r"free %d\r\n"),
            ("_caller_", "level", "a | b"),
            ("StartAll", "1", "one text"),
            ("Update", "3", "file %s"),
            ("Run", "5", "")])

    def test_what_is_not_understood_is_not_left_out(self):
        with self.assertRaises(make_log_page.NotUnderstood):
            list(make_log_page.named_lines("void F() {\n    AIT_LOG(Level(1, 2), Text(3));\n}\n"))


if __name__ == "__main__":
    unittest.main()
