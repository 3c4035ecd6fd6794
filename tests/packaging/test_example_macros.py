"""The macros of the example, run by LibreOffice's Basic with the bridge and the stand-in for the
application."""

import subprocess
import unittest
from pathlib import Path

from desktop import (
    APA, BATCH, CARSON, CHOOSE, CHOOSE_KUHN, DARWIN, DESKTOP, EDIT, EDIT_TO_DARWIN, FAILURES, IEEE,
    KUHN, MERGE, NODE, STYLE, ExampleCase, Scenario, anchor, cluster, field, fields, main,
    plain, text, texts,
)  # fmt: skip
from office import from_hex
from support import BRIDGE, free_port

CHOOSE_IEEE = {"dialog": "chooseStyle", "style": IEEE}
CANCELLED = {"dialog": "chooseCitation", "cancel": True}
FIXED_PATH = Path("/opt/Tessaron Desktop/tessaron-desktop")
ENTRY = """[Desktop Entry]
Type=Application
Name=Tessaron Desktop
Exec="{node}" "{desktop}/main.js" --port {port} --answers "{answers}"
"""


class InsertTest(ExampleCase):
    def test_inserts_at_cursor(self):
        document = [APA, text("See . More.\r")]
        result = self.run_one(document, "InsertCitation", ((0, 4),), dialogs=[CHOOSE_KUHN])
        self.assertEqual([plain(p) for p in result.document[1:]], ["See ", KUHN, ". More.\r"])
        self.assertEqual(cluster(result.document[2][2])["citationItems"][0]["id"], "kuhn-1962")
        self.assertEqual(result.messages.count("one undo step"), 1)

    def test_refreshes_whole_document(self):
        document = [IEEE, text("A "), *self.document()[1:]]
        result = self.run_one(document, "InsertCitation", ((0, 2),), dialogs=[
            {"dialog": "chooseCitation", "items": [{"uuid": "darwin-1859"}]}])  # fmt: skip
        self.assertEqual(texts(result.document), ["[1]", "[2]", "[3]"])

    def test_inserts_beside_citation_and_never_in_it(self):
        document = [APA, text("See"), field(*self.carson), text(".")]
        end = len(self.carson[0]) + len(CARSON) + 3
        rows = {
            "cursor before": (((1, 0),), [KUHN, CARSON]),
            "cursor after": (((1, end),), [CARSON, KUHN]),
            "selection from the text into the citation": (((0, 0), (1, 9)), [CARSON, KUHN]),
            "selection of text and citation": (((0, 0), (1, end)), [CARSON, KUHN]),
        }
        results = self.run_scenarios(
            *(Scenario(document, "InsertCitation", select, dialogs=[CHOOSE_KUHN])
              for select, _ in rows.values())
        )  # fmt: skip
        for (name, (_, expected)), result in zip(rows.items(), results):
            with self.subTest(name):
                self.assertEqual(texts(result.document), expected)
                self.assertEqual("".join(plain(p) for p in result.document[1:] if p[1] == "text"), "See.")

    def test_edits_in_citation(self):
        document = [APA, text("See"), field(*self.carson), text(".")]
        end = len(self.carson[0]) + len(CARSON) + 3
        selections = ((1, 1),), ((1, end - 1),), ((1, end - 3), (1, end - 2)), ((1, 0), (1, end))
        results = self.run_scenarios(
            *(Scenario(document, "InsertCitation", s, dialogs=[EDIT_TO_DARWIN]) for s in selections)
        )
        for select, result in zip(selections, results):
            with self.subTest(select):
                self.assertEqual(texts(result.document), [DARWIN])

    def test_inserts_before_end_of_paragraph(self):
        for mark in ("\r", "\x07"):
            document = [APA, text("One." + mark), text("Two.\r")]
            result = self.run_one(document, "InsertCitation", ((0, 0), (0, 5)), dialogs=[CHOOSE_KUHN])
            self.assertEqual("".join(plain(p) for p in result.document[1:]), f"One.{KUHN}{mark}Two.\r")

    def test_inserts_in_note(self):
        document = [IEEE, text("A"), anchor(1), field(*self.carson), text("Note. ", 1)]
        result = self.run_one(document, "InsertCitation", ((3, 6),), dialogs=[CHOOSE_KUHN])
        self.assertEqual({(p[0], plain(p)) for p in fields(result.document)}, {(1, "[1]"), (0, "[2]")})

    def test_refuses_other_places(self):
        document = [*self.document(), field("TOC", "Contents 1"), field("ADDIN CSL_BIBLIOGRAPHY 1", "Kuhn"),
                    text("A header", -1)]  # fmt: skip
        rows = {5: "outside the other field", 6: "outside the other field", 7: "can be in the main text"}
        results = self.run_scenarios(*(Scenario(document, "InsertCitation", ((p, 2),)) for p in rows))
        for sentence, result in zip(rows.values(), results):
            self.assert_unchanged(result, sentence)
        self.assertEqual([r["path"] for r in self.desktop.requests() if r["path"] == CHOOSE], [])

    def test_refuses_document_that_cannot_be_changed(self):
        result = self.run_one(self.document(), "InsertCitation", problem="The document is protected.")
        self.assert_unchanged(result, "The document is protected.")
        self.assertEqual(self.desktop.requests()[3:], [])  # after the three of setUp

    def test_shows_note_after_cancel_and_message_if_application_ended(self):
        select = ((0, 1),)
        cancelled = self.run_one(self.document(), "InsertCitation", select, dialogs=[CANCELLED])
        self.assert_unchanged(cancelled, "Tessaron returned no citation.", "note")
        self.assertEqual(cancelled.of("say"), [])
        kill = self.script_that(f"kill {self.desktop.process.pid}")
        ended = self.run_one(
            self.document(), "InsertCitation", select, faults={CHOOSE: {"delayMs": 3000}},
            during_getFieldCodeFromCitationEditor=kill,
        )  # fmt: skip
        self.assert_unchanged(ended, "Tessaron Desktop has ended.")

    def script_that(self, line):
        path = self.folder / "during"
        path.write_text(f"#!/bin/sh\n{line}\n")
        path.chmod(0o755)
        return path

    def test_keeps_its_position_while_user_types_during_dialog(self):
        result = self.run_one(
            [APA, text("See . More.\r")], "InsertCitation", ((0, 4),), dialogs=[CHOOSE_KUHN],
            faults={CHOOSE: {"delayMs": 500}}, during_getFieldCodeFromCitationEditor="type in text",
        )  # fmt: skip
        shown = "".join(plain(p) for p in result.document[1:])
        self.assertEqual(shown, f"typed during the wait. See {KUHN}. More.\r")

    def test_asks_whether_to_keep_citation_when_batch_fails(self):
        document = self.document()
        fault = {BATCH: {"status": 500}}
        no, yes = self.run_scenarios(
            *(Scenario(document, "InsertCitation", ((0, 0),), answers=key, dialogs=[CHOOSE_KUHN], faults=fault)
              for key in "ny")
        )  # fmt: skip
        self.assert_unchanged(no, "Insert the citation without its text?", "ask")
        self.assertEqual(texts(yes.document), ["{Citation}", KUHN, CARSON])
        self.assertEqual(yes.document[3:], [text("See ")] + document[2:])
        later = self.run_one(yes.document, "RefreshAll")
        self.assertEqual(texts(later.document), [KUHN, KUHN, CARSON])


class EditTest(ExampleCase):
    inside = ((1, 5),)

    def test_edits_citation_at_cursor(self):
        result = self.run_one(self.document(), "EditCitation", self.inside, dialogs=[EDIT_TO_DARWIN])
        self.assertEqual(texts(result.document), [DARWIN, CARSON])

    def test_refuses_position_without_citation(self):
        result = self.run_one(self.document(), "EditCitation", ((0, 1),))
        self.assert_unchanged(result, "Put the cursor into a citation first.")

    def test_changes_nothing_without_answer(self):
        cancel = [{"dialog": "editCitation", "cancel": True}]
        scenarios = [Scenario(self.document(), "EditCitation", self.inside, faults={EDIT: fault})
                     for fault in FAILURES.values()]  # fmt: skip
        scenarios.append(Scenario(self.document(), "EditCitation", self.inside, dialogs=cancel))
        for result in self.run_scenarios(*scenarios):
            self.assert_unchanged(result, "The citation was not changed.", "note")

    def test_refuses_citation_that_is_removed_during_dialog(self):
        result = self.run_one(
            self.document(), "EditCitation", self.inside, dialogs=[EDIT_TO_DARWIN],
            faults={EDIT: {"delayMs": 500}}, during_getFieldCodeFromCitationEditor="delete field",
        )  # fmt: skip
        self.assertEqual(result.of("write"), [])
        self.assertIn("The citation was changed or removed while Tessaron was working.", result.of("say")[0])

    def test_keeps_edit_when_another_citation_changes_during_batch(self):
        # The first field is Kuhn's; the edited one is Carson's.
        result = self.run_one(
            self.document(), "EditCitation", ((3, 5),), dialogs=[EDIT_TO_DARWIN], answers="y",
            faults={BATCH: {"delayMs": 500}}, during_formatCitationsAndBibliography="delete field",
        )  # fmt: skip
        self.assertIn("were changed while Tessaron was working", result.of("ask")[0])
        self.assertEqual(result.of("write"), ["code"])
        self.assertEqual(texts(result.document), [CARSON])
        self.assertEqual(cluster(fields(result.document)[0][2])["citationItems"][0]["id"], "darwin-1859")

    def test_asks_whether_to_keep_edit_when_batch_fails(self):
        fault = {BATCH: {"drop": "beforeStatus"}}
        no, yes = self.run_scenarios(
            *(Scenario(self.document(), "EditCitation", self.inside, answers=key, dialogs=[EDIT_TO_DARWIN],
                       faults=fault) for key in "ny")
        )  # fmt: skip
        self.assert_unchanged(no, "Keep the changed citation with its old text?", "ask")
        self.assertEqual(texts(yes.document), [KUHN, CARSON])
        self.assertEqual(cluster(yes.document[2][2])["citationItems"][0]["id"], "darwin-1859")
        self.assertEqual(yes.document[4], self.document()[4])


class StyleAndBibliographyTest(ExampleCase):
    def test_chooses_style(self):
        result = self.run_one(self.document(), "ChooseStyle", dialogs=[CHOOSE_IEEE])
        self.assertEqual(texts(result.document), ["[1]", "[2]"])
        self.assertEqual(result.document[0], IEEE)

    def test_chooses_style_for_document_without_citations(self):
        result = self.run_one([APA, text("Nothing yet.")], "ChooseStyle", dialogs=[CHOOSE_IEEE])
        self.assertEqual(result.document, [IEEE, text("Nothing yet.")])

    def test_keeps_style_after_cancel_or_failure(self):
        document = self.document()
        cancelled, failed, refused = self.run_scenarios(
            Scenario(document, "ChooseStyle", dialogs=[{"dialog": "chooseStyle", "cancel": True}]),
            Scenario(document, "ChooseStyle", faults={STYLE: {"status": 500}}),
            Scenario(document, "ChooseStyle", dialogs=[CHOOSE_IEEE], faults={BATCH: {"status": 500}}),
        )
        self.assert_unchanged(cancelled, "Tessaron returned no style.", "note")
        self.assert_unchanged(failed, "Tessaron returned no style.", "note")
        self.assert_unchanged(refused, f"could not format the document in the style {IEEE}")

    def test_inserts_bibliography_once(self):
        document = self.document()
        result = self.run_one(document, "InsertBibliography", ((4, 1),))
        *_, bibliography, end = result.document
        self.assertRegex(bibliography[2], r"\AADDIN CSL_BIBLIOGRAPHY [0-9A-F]+\Z")
        self.assertEqual(len(plain(bibliography).split("\r")), 2)
        self.assertEqual(plain(end), "\r")
        again = self.run_one(result.document, "InsertBibliography", ((4, 1),))
        self.assert_unchanged(again, "already has a bibliography")

    def test_refuses_bibliography_in_wrong_position_or_without_citations(self):
        document = [*self.document(), anchor(1), text("A note.", 1)]
        rows = [
            (document, ((1, 3),), {}, "cannot be inside a citation"),
            (document, ((6, 3),), {}, "must be in the main text"),
            ([APA, text("Nothing.")], ((0, 1),), {}, "Insert a citation first."),
            (document, ((4, 1),), {BATCH: {"emptyBibliography": True}}, "could not format"),
        ]
        results = self.run_scenarios(
            *(Scenario(d, "InsertBibliography", s, faults=f) for d, s, f, _ in rows)
        )
        for (*_, sentence), result in zip(rows, results):
            self.assert_unchanged(result, sentence)


class MergeTest(ExampleCase):
    def neighbours(self, between=" \xa0", shown=CARSON):
        return [APA, text("See "), field(*self.kuhn), text(between), field(self.carson[0], shown), text(".")]

    both = ((0, 1), (4, 1))

    def test_merges_adjacent_citations(self):
        third = [text(" "), field(self.desktop.new_code("darwin-1859"), "{Citation}")]
        document = self.neighbours()
        pair, three = self.run_scenarios(
            Scenario(document, "MergeCitations", self.both),
            Scenario(document[:5] + third + document[5:], "MergeCitations", ((1, 0), (6, 1))),
        )
        for result, merged in ((pair, "(Carson, 1962; Kuhn, 1962)"), (three, "(Carson, 1962; Darwin, 1859; Kuhn, 1962)")):
            self.assertEqual([plain(p) for p in result.document[1:]], ["See ", merged, "."])
        items = [item["id"] for item in cluster(pair.document[2][2])["citationItems"]]
        self.assertEqual(items, ["kuhn-1962", "carson-1962"])

    def test_refuses_other_selections(self):
        rows = {
            "one citation": (self.neighbours(), ((0, 1), (2, 1)), "Select two or more adjacent citations"),
            "no citation": (self.neighbours(), ((0, 1),), "Select two or more adjacent citations"),
            "text between": (self.neighbours(" and "), self.both, "more than spaces between"),
            "a picture": (self.neighbours(shown="\x01x"), self.both, "something other than text"),
        }
        results = self.run_scenarios(*(Scenario(d, "MergeCitations", s) for d, s, _ in rows.values()))
        for (name, (*_, sentence)), result in zip(rows.items(), results):
            with self.subTest(name):
                self.assert_unchanged(result, sentence)

    def test_asks_before_it_loses_text_edited_by_hand(self):
        document = self.neighbours(shown="(typed)")
        no, yes = (self.run_one(document, "MergeCitations", self.both, answers=key) for key in "ny")
        self.assert_unchanged(no, "A text that was edited by hand will be lost.", "ask")
        self.assertEqual(texts(yes.document), ["(Carson, 1962; Kuhn, 1962)"])

    def test_changes_nothing_after_failure(self):
        document = self.neighbours()
        sentences = ["could not merge"] * 3 + ["contains no citation"] * 3
        for path, expected in ((MERGE, sentences), (BATCH, ["could not format"] * 6)):
            results = self.run_scenarios(
                *(Scenario(document, "MergeCitations", self.both, faults={path: f}) for f in FAILURES.values())
            )
            for name, sentence, result in zip(FAILURES, expected, results):
                with self.subTest(f"{path}: {name}"):
                    self.assert_unchanged(result, sentence)

    def test_undoes_write_that_fails(self):
        results = self.run_scenarios(
            *(Scenario(self.neighbours(), "MergeCitations", self.both, failing_write=n) for n in range(3))
        )
        for result in results:
            self.assertEqual(result.document, result.before)
            self.assertIn("The field is locked.", result.of("say")[0])


class BridgeTest(ExampleCase):
    slow = {BATCH: {"delayMs": 60000}}

    def test_cancel_ends_wait(self):
        result = self.run_one(
            self.document("x", "y"), "RefreshAll", faults=self.slow, during_formatCitationsAndBibliography="cancel"
        )
        self.assert_unchanged(result, "Cancelled.")
        self.assertEqual(list(self.word_temporary.iterdir()), [])

    def test_reports_killed_bridge(self):
        kill = self.folder / "during"
        kill.write_text(f'#!/bin/sh\nkill -KILL "$(cat {self.word_temporary}/*/bridge-process)"\n')
        kill.chmod(0o755)
        result = self.run_one(
            self.document("x", "y"), "RefreshAll", faults=self.slow, during_formatCitationsAndBibliography=kill
        )
        self.assert_unchanged(result, "The connection to Tessaron ended without an answer.")

    def test_reports_bridge_that_fails(self):
        # Works until the batch, and then ends without an answer.
        self.use_script(f'[ "$1" = formatCitationsAndBibliography ] || exec "{BRIDGE}" "$@"')
        result = self.run_one(self.document("x", "y"), "RefreshAll")
        self.assert_unchanged(result, "The connection to Tessaron ended without an answer.")

    def test_reports_missing_bridge(self):
        self.use_bridge(self.folder / "nothing")
        result = self.run_one(self.document("x", "y"), "RefreshAll")
        self.assert_unchanged(result, "The bridge is not at")

    def test_refuses_second_macro_during_wait(self):
        result = self.run_one(
            self.document("{Citation}", CARSON), "RefreshAll", faults={BATCH: {"delayMs": 500}},
            during_formatCitationsAndBibliography="start another macro",
        )  # fmt: skip
        self.assertIn("Tessaron is waiting for an answer.", result.of("say")[0])
        self.assertEqual(len([r for r in self.desktop.requests() if r["path"] == BATCH]), 2)  # one of setUp

    def test_reports_cancel_without_wait(self):
        (outcome,) = self.basic(("cancel macro",))
        message = from_hex(outcome.removeprefix("ok "))
        self.assertEqual(message.strip(), "say Tessaron is not waiting for anything.")

    def test_introduces_word_once(self):
        self.office.stop()
        self.run_scenarios(*[Scenario(self.document(), "RefreshAll")] * 2)
        bodies = [r["body"] for r in self.desktop.requests() if r["path"] == "/wordProcessor/set"]
        self.assertEqual(bodies, ['{"version":"1.0","wordProcessor":"Test"}'])


@unittest.skipIf(FIXED_PATH.exists(), f"{FIXED_PATH} is installed and would be started instead.")
class LaunchTest(ExampleCase):
    def setUp(self):
        super().setUp()
        self.port = free_port()
        self.use_port(self.port)
        self.environment["XDG_DATA_HOME"] = str(self.folder / "data")
        self.environment["XDG_DATA_DIRS"] = str(self.folder / "no-data")

    def test_reports_application_that_cannot_be_started(self):
        result = self.run_one(self.document("x", "y"), "RefreshAll")
        self.assert_unchanged(result, "Tessaron Desktop could not be started.")

    def test_starts_application(self):
        applications = self.folder / "data" / "applications"
        applications.mkdir(parents=True)
        entry = ENTRY.format(node=NODE, desktop=DESKTOP, port=self.port, answers=self.desktop.answers)
        (applications / "com.tessaron.desktop.desktop").write_text(entry)
        self.addCleanup(self.stop_application)
        result = self.run_one(self.document("", ""), "RefreshAll")
        self.assertEqual(texts(result.document), [KUHN, CARSON])

    def stop_application(self):
        process_id = self.run_command("tessaronProcessId")
        units = process_id.removeprefix("ok 1:").split()
        subprocess.run(["kill", "".join(chr(int(unit, 16)) for unit in units)])


if __name__ == "__main__":
    main()
