"""The logic of the example, run by LibreOffice's Basic with the bridge and the stand-in for the
application."""

import json

from desktop import (
    APA, BATCH, CARSON, FAILURES, IEEE, KUHN, PREFIX, STYLE_URL, UNCHANGED, UNDO, UNUSABLE, UPDATE, WORKS,
    ExampleCase, Scenario, anchor, cluster, code_of, field, fields, main, plain, text, texts,
)  # fmt: skip


class RefreshTest(ExampleCase):
    def test_leaves_document_without_citations(self):
        result = self.run_one(["", text("No citation here.")], "RefreshAll")
        self.assert_unchanged(result, "The document has no citations.")

    def test_formats_one_citation(self):
        code = self.desktop.new_code("kuhn-1962")
        result = self.run_one([APA, text("See "), field(code, "{Citation}"), text(".")], "RefreshAll")
        self.assertEqual([plain(p) for p in result.document[1:]], ["See ", KUHN, "."])
        record = cluster(result.document[2][2])["tessaron"]
        self.assertEqual(record["plainTextFormattedCitation"], KUHN)
        self.assertEqual(result.messages.count("one undo step"), 1)

    def test_numbers_300_citations_in_reading_order(self):
        codes = {work: self.desktop.new_code(work) for work in WORKS}
        cited = [WORKS[i * 7 % len(WORKS)] for i in range(300)]
        document = [IEEE, *(piece for work in cited for piece in (field(codes[work], "{Citation}"), text(" ")))]
        (result,) = self.run_scenarios(Scenario(document, "RefreshAll"))
        order = list(dict.fromkeys(cited))
        self.assertEqual(texts(result.document), [f"[{order.index(work) + 1}]" for work in cited])

    def test_numbers_note_where_it_is_referred_to(self):
        works = iter(self.desktop.new_code(work) for work in WORKS)
        new = lambda story=0: field(next(works), "{Citation}", story)
        first, box, note, last, endnote = new(), new(3), new(1), new(), new(2)
        result = self.run_one(
            [IEEE, first, text(" "), anchor(3), text(" "), anchor(1), text(" "), last, anchor(2),
             text("In a note: ", 1), note, text("In an endnote: ", 2), endnote, text("Box ", 3), box],
            "RefreshAll",
        )  # fmt: skip
        by_story = {(p[0], plain(p)) for p in fields(result.document)}
        self.assertEqual(by_story, {(0, "[1]"), (3, "[2]"), (1, "[3]"), (0, "[4]"), (2, "[5]")})

    def test_writes_bibliography_as_paragraphs(self):
        document = [*self.document(), field("ADDIN CSL_BIBLIOGRAPHY", "old")]
        result = self.run_one(document, "RefreshAll")
        runs = fields(result.document)[-1][3]
        self.assertEqual(
            [entry.split(" (")[0] for entry in "".join(r for _, r in runs).split("\r")],
            ["Carson, R.", "Kuhn, T. S."],
        )
        self.assertIn((1, "Silent Spring"), runs)
        self.assertIn((1, "The Structure of Scientific Revolutions"), runs)
        self.assertEqual(result.of("write"), ["code", "text"])

    def test_second_refresh_writes_nothing(self):
        document = [APA, field(self.desktop.new_code("kuhn-1962"), "x"), text(" "),
                    field("ADDIN CSL_BIBLIOGRAPHY", "x")]  # fmt: skip
        first = self.run_one(document, "RefreshAll")
        self.assertEqual(len(first.of("write")), 4)
        second = self.run_one(first.document, "RefreshAll")
        self.assertEqual(second.of("write"), [])
        self.assertEqual(second.document, first.document)

    def test_writes_only_what_changed(self):
        document = self.document(KUHN, CARSON)
        document[2] = field(self.desktop.new_code("kuhn-1962"), "{Citation}")
        result = self.run_one(document, "RefreshAll")
        self.assertEqual(result.of("write"), ["code", "text"])
        self.assertEqual(result.document[4], document[4])

    def test_uses_style_of_application_at_first(self):
        document = self.document()
        document[0] = ""
        result = self.run_one(document, "RefreshAll")
        self.assertEqual(result.document[0], APA)

    def test_reports_application_without_style(self):
        document = self.document()
        document[0] = ""
        result = self.run_one(document, "RefreshAll", faults={"/citationStyle/selected": {"status": 500}})
        self.assert_unchanged(result, "Tessaron did not name its citation style.")

    def test_markup_becomes_formatting(self):
        nature = STYLE_URL + "nature"
        document = self.document()
        document[0] = nature
        result = self.run_one(document, "RefreshAll")
        self.assertEqual([p[3] for p in fields(result.document)], [[(4, "1")], [(4, "2")]])

    def test_sends_recorded_text_with_its_formatting(self):
        (superscript,), _ = self.desktop.format([self.kuhn[0]], STYLE_URL + "nature")
        self.assertEqual(superscript[1], "<sup>1</sup>")
        self.run_one([APA, field(superscript[0], [(4, "1")])], "RefreshAll")
        self.assertEqual(self.sent_batch()["citationClusters"][0]["formattedText"], "<sup>1</sup>")

    def test_counts_but_does_not_write_citation_with_picture(self):
        document = self.document("\x01 (Kuhn, 1962)", CARSON)
        document[0] = IEEE
        result = self.run_one(document, "RefreshAll")
        self.assertEqual(result.document[2], document[2])
        self.assertEqual(plain(result.document[4]), "[2]")
        self.assertIn('Citation 1 ("(Kuhn, 1962)") contains something other than text.', result.of("say")[0])

    def test_ignores_citation_inside_another(self):
        document = self.document()
        document.insert(3, field(self.carson[0], "x", kind="nested"))
        document[0] = IEEE
        result = self.run_one(document, "RefreshAll")
        self.assertEqual(len(self.sent_batch()["citationClusters"]), 2)
        self.assertEqual(texts(result.document), ["[1]", "[2]"])

    def test_damaged_citation_stops_refresh(self):
        for code in (PREFIX + "null", PREFIX + "{}", PREFIX + '{"citationItems":[ ]}', PREFIX + self.kuhn[0][19:-1]):
            document = self.document()
            document[4] = field(code, "(cut)")
            with self.subTest(code[:40]):
                result = self.run_one(document, "RefreshAll")
                self.assert_unchanged(result, 'The field code of citation 2 ("(cut)") is damaged.')


class FailedBatchTest(ExampleCase):
    def test_changes_nothing_after_bad_answer(self):
        document = [*self.document("{Citation}", CARSON), field("ADDIN CSL_BIBLIOGRAPHY", "old")]
        sentence = "could not format the document in the style " + APA
        reply = {"citationStyleUrl": APA, "bibliography": "Kuhn", "citationClusters": [
            {"citationCluster": cluster(self.kuhn[0]), "formattedText": KUHN},
            {"citationCluster": cluster(self.carson[0]), "formattedText": CARSON},
        ]}  # fmt: skip

        def with_value(*path, value):
            body = json.loads(json.dumps(reply))
            at = body
            for key in path[:-1]:
                at = at[key]
            at[path[-1]] = value
            return {"body": json.dumps(body)}

        second = ("citationClusters", 1)
        rows = {
            **{name: (fault, sentence) for name, fault in FAILURES.items()},
            "one citation fewer": ({"extraCitations": -1}, sentence),
            "one citation more": ({"extraCitations": 1}, sentence),
            "no bibliography": ({"emptyBibliography": True}, sentence),
            "empty text": (with_value(*second, "formattedText", value=""), "no text for citation 2"),
            "text of nothing but tags": (with_value(*second, "formattedText", value="<i> </i>"), "no text for citation 2"),
            "no text": (with_value(*second, "formattedText", value=None), "no text for citation 2"),
            "empty cluster": (with_value(*second, "citationCluster", value={}), "citation 2 (\"(Carson, 1962)\") contains no citation"),
            "no cluster": (with_value(*second, "citationCluster", value=None), "contains no citation"),
            "cluster without works": (with_value(*second, "citationCluster", value={"citationItems": []}), "contains no citation"),
            "empty style": (with_value("citationStyleUrl", value=""), "names no style"),
        }  # fmt: skip
        results = self.run_scenarios(
            *(Scenario(document, "RefreshAll", faults={BATCH: fault}) for fault, _ in rows.values())
        )
        for (name, (_, expected)), result in zip(rows.items(), results):
            with self.subTest(name):
                self.assert_unchanged(result, expected)
                self.assertIn(UNCHANGED, result.of("say")[0])

    def test_names_citation_that_was_rejected(self):
        document = self.document()
        document[4] = field(PREFIX + '{"citationItems":[{"id":1}]}', "(strange)")
        result = self.run_one(document, "RefreshAll")
        self.assert_unchanged(result, 'Tessaron cannot format citation 2 ("(strange)").')

    def test_reports_unknown_style(self):
        document = self.document()
        document[0] = STYLE_URL + "unknown"
        result = self.run_one(document, "RefreshAll")
        self.assert_unchanged(result, "in the style " + STYLE_URL + "unknown")

    def test_undoes_write_that_fails(self):
        document = [*self.document("{Citation}", "{Citation}"), field("ADDIN CSL_BIBLIOGRAPHY", "old")]
        results = self.run_scenarios(
            *(Scenario(document, "RefreshAll", failing_write=count) for count in range(5))
        )
        for count, result in enumerate(results):
            with self.subTest(f"after {count} writes"):
                self.assertEqual(len(result.of("write")), count)
                self.assertEqual(result.document, document)
                self.assertIn("The document could not be changed: The field is locked.", result.of("say")[0])

    def test_refuses_document_that_changed_during_wait(self):
        delay = {BATCH: {"delayMs": 500}}
        results = self.run_scenarios(
            Scenario(self.document("x", "y"), "RefreshAll", faults=delay, during_formatCitationsAndBibliography="delete field"),
            Scenario(self.document("x", "y"), "RefreshAll", faults=delay, during_formatCitationsAndBibliography="type in field"),
            Scenario(self.document(), "RefreshAll", faults=delay, during_formatCitationsAndBibliography="close document"),
        )
        for result in results:
            self.assertEqual(result.of("write"), [])
        for result in results[:2]:
            self.assertIn("were changed while Tessaron was working", result.of("say")[0])
        self.assertEqual(results[2].of("say"), ["The document was closed."])


class EditByHandTest(ExampleCase):
    def test_keeps_text_and_its_formatting(self):
        typed = [(0, "(as "), (1, "Kuhn & others"), (0, " say)")]
        result = self.run_one(self.document(typed, CARSON), "RefreshAll")
        self.assertEqual(result.document[2][3], typed)
        record = cluster(result.document[2][2])["tessaron"]
        self.assertEqual(record["manualFormatting"], "(as <i>Kuhn &amp; others</i> say)")
        self.assertEqual(plain(result.document[4]), CARSON)
        again = self.run_one(result.document, "RefreshAll")
        self.assertEqual(again.of("write"), [])

    def test_ignores_characters_that_word_stores_differently(self):
        shown = {
            "line break": ("(Kuhn,\n1962)", "(Kuhn,\x0b1962)"),
            "non-breaking hyphen": ("(Kuhn\u20111962)", "(Kuhn\x1e1962)"),
            "optional hyphen": ("(Kuhn\xad1962)", "(Kuhn\x1f1962)"),
            "control character": ("(Kuhn\x07 1962)", "(Kuhn\ufffd 1962)"),
            "markup": ("(<i>Kuhn</i> &amp; 1962)", "(Kuhn & 1962)"),
            "deleted text": ("(Kuhn)", ""),
        }
        scenarios = []
        for recorded, now in shown.values():
            content = cluster(self.kuhn[0])
            content["tessaron"] = {"previouslyFormattedCitation": recorded}
            scenarios.append(Scenario([APA, field(code_of(content), now)], "RefreshAll"))
        for name, result in zip(shown, self.run_scenarios(*scenarios)):
            with self.subTest(name):
                self.assertEqual(texts(result.document), [KUHN])
        self.assertEqual([r for r in self.desktop.requests() if r["path"] == UPDATE], [])

    def test_changes_nothing_without_record(self):
        document = self.document("(my own words)", "{Citation}")
        cancel = [{"dialog": "updateCitation", "cancel": True}]
        scenarios = [
            *(Scenario(document, "RefreshAll", answers="n", faults={UPDATE: FAILURES[name]})
              for name in FAILURES if name not in UNUSABLE),
            Scenario(document, "RefreshAll", answers="n", dialogs=cancel),
        ]  # fmt: skip
        for result in self.run_scenarios(*scenarios):
            self.assert_unchanged(result, "The texts were not refreshed.")
            self.assertIn('citation 1 ("(my own words)"), and Tessaron has not recorded', result.of("ask")[0])

    def test_changes_nothing_after_unusable_reply(self):
        document = self.document("(my own words)", "{Citation}")
        results = self.run_scenarios(
            *(Scenario(document, "RefreshAll", faults={UPDATE: FAILURES[name]}) for name in UNUSABLE)
        )
        for result in results:
            self.assert_unchanged(result, 'citation 1 ("(my own words)") contains no citation.')

    def test_replaces_text_if_user_agrees(self):
        document = self.document("(my own words)", CARSON)
        result = self.run_one(document, "RefreshAll", answers="y", faults={UPDATE: {"status": 500}})
        self.assertEqual(texts(result.document), [KUHN, CARSON])

    def test_older_record_does_not_count_for_new_edit(self):
        document = self.document("(newer words)", CARSON)
        document[2] = field(self.recorded("(older words)", "(older words)"), "(newer words)")
        result = self.run_one(document, "RefreshAll", answers="n", faults={UPDATE: {"status": 500}})
        self.assert_unchanged(result, "The texts were not refreshed.")

    def test_uses_text_of_style_if_user_chose_it_in_dialog(self):
        document = self.document("(newer words)", CARSON)
        document[2] = field(self.recorded("(older words)", "(older words)"), "(newer words)")
        result = self.run_one(document, "RefreshAll", dialogs=[{"dialog": "updateCitation", "keep": False}])
        self.assertEqual(texts(result.document), [KUHN, CARSON])
        self.assertEqual(result.of("ask"), [])

    def test_undo_restores_text_of_style(self):
        recorded = self.document()
        recorded[2] = field(self.recorded("(words)", "(words)"), "(words)")
        changed_again = self.document()
        changed_again[2] = field(self.recorded("(words)", "(words)"), "(other words)")
        documents = recorded, changed_again, self.document("(not recorded)", CARSON)
        inside = ((1, 9), )
        results = self.run_scenarios(*(Scenario(d, "UndoManualEdit", inside) for d in documents))
        for result in results:
            self.assertEqual(texts(result.document), [KUHN, CARSON])
            self.assertNotIn("manualFormatting", result.document[2][2])
            self.assertEqual(result.of("ask"), [])

    def test_failed_undo_changes_nothing(self):
        document = self.document()
        document[2] = field(self.recorded("(words)", "(words)"), "(words)")
        inside = ((1, 9), )
        sentences = {
            **dict.fromkeys(FAILURES, "could not undo the edit"),
            **dict.fromkeys(UNUSABLE, "contains no citation"),
        }
        results = self.run_scenarios(
            *(Scenario(document, "UndoManualEdit", inside, faults={UNDO: fault}) for fault in FAILURES.values()),
            Scenario(self.document(), "UndoManualEdit", inside),
        )
        for (name, sentence), result in zip(sentences.items(), results):
            with self.subTest(name):
                self.assert_unchanged(result, sentence)
        self.assert_unchanged(results[-1], "This citation was not edited by hand.")


if __name__ == "__main__":
    main()
