"""Makes the documents that the benchmarks format: argument files as the macro writes them, and
the application's replies to them. All data comes from one random seed, so it is the same in every run."""
import json
import os
import random

STYLE = "http://styles.tessaron.example/apa"
SCHEMA = "https://github.com/citation-style-language/schema/raw/master/csl-citation.json"
SEPARATOR = "\x01"
ARGUMENTS = "mac-word-plugin-args.txt"

PLAIN = ("the of and in a to with for we that are by an from was this which on as is results "
         "between model analysis temperature protein expression response population measured "
         "significant distribution method observed structure regional interactions estimates "
         "dynamics spatial treatment variability sequence mechanism hypothesis surface membrane "
         "climate").split(" ")
SPECIAL = ("naïve Poincaré β-catenin 25\u202f°C Schrödinger \u201cnull\u201d p\u2009<\u20090.05 "
           "\"wild\"").split(" ")
WORDS = 4 * PLAIN + SPECIAL  # about seven characters in a thousand are not ASCII
FAMILIES = ("Andersson Bianchi Çelik Dvořák García Hernández Ivanova Jørgensen Kowalczyk "
            "Łukasiewicz Müller Nguyễn O'Brien Peña Quinn Rossi Schmidt Tanaka 山田 Williams "
            "Zhang").split(" ")
GIVEN = "Anna Björn Carla David Émile Fatima Grace Hiroshi Ingrid José Kevin Lucía Mei".split(" ")


def compact(value, sort_keys=False):
    return json.dumps(value, ensure_ascii=False, separators=(",", ":"), sort_keys=sort_keys)


class Library:
    """A generated library. Returns any number of citation clusters, with abstracts."""

    def __init__(self):
        self.random = random.Random(20)
        self.sentences = [self.sentence() for _ in range(500)]

    def sentence(self):
        return " ".join(self.random.choices(WORDS, k=self.random.randint(9, 15))).capitalize() + "."

    def author(self):
        return {"family": self.random.choice(FAMILIES), "given": self.random.choice(GIVEN),
                "dropping-particle": "", "non-dropping-particle": "", "suffix": ""}

    def item(self, number, abstract):
        pick = self.random
        year, page = pick.randint(1950, 2023), pick.randint(1, 900)
        return {
            "id": f"ITEM-{number}", "type": "article-journal",
            "title": pick.choice(self.sentences)[:90].rstrip(),
            "author": [self.author() for _ in range(pick.randint(1, 5))],
            "container-title": pick.choice(self.sentences)[:40].rstrip(),
            "DOI": f"10.{pick.randint(1000, 9999)}/j.{pick.getrandbits(40):x}", "ISSN": "1932-6203",
            "issued": {"date-parts": [[year, pick.randint(1, 12)]]}, "volume": str(year - 1940),
            "issue": str(pick.randint(1, 12)), "page": f"{page}-{page + 12}", "abstract": abstract,
        }

    def cluster(self, number, abstract=None):
        """One citation. Its keys are in the application's order, which is not sorted."""
        abstract = abstract or " ".join(self.random.choices(self.sentences, k=8))
        item = self.item(number, abstract)
        text = f"({item['author'][0]['family']}, {item['issued']['date-parts'][0][0]})"
        uuid = f"{self.random.getrandbits(128):032x}"
        return {
            "citationItems": [{"id": item["id"], "itemData": item,
                               "uris": [f"http://documents.tessaron.example/?uuid={uuid}"]}],
            "tessaron": {"previouslyFormattedCitation": text, "plainTextFormattedCitation": text,
                         "manualFormatting": ""},
            "properties": {"noteIndex": 0},
            "schema": SCHEMA,
        }


def write_arguments(folder, arguments):
    os.makedirs(folder, exist_ok=True)
    with open(os.path.join(folder, ARGUMENTS), "wb") as file:
        file.write(SEPARATOR.join(arguments).encode("utf-16-le"))


def write_json(path, value):
    with open(path, "w", encoding="utf-8") as file:
        file.write(compact(value))


def write_clusters(folder, clusters, changed=False):
    """Writes the argument file that the macro would write for these citations, and the reply to it.

    The field codes of the reply are those of the arguments, unless `changed`.
    """
    arguments, replies, bibliography = [STYLE], [], []
    for cluster in clusters:
        text = cluster["tessaron"]["plainTextFormattedCitation"]
        item = cluster["citationItems"][0]["itemData"]
        sent = {**cluster, "properties": {"noteIndex": 1}} if changed else cluster
        arguments += "ADDIN CSL_CITATION " + compact(sent, sort_keys=True), text
        replies.append({"citationCluster": cluster, "formattedText": f"<i>{text}</i>"})
        bibliography.append(f"{item['author'][0]['family']}. {item['title']} {item['page']}.")
    write_arguments(folder, arguments)
    write_json(os.path.join(folder, "reply.json"), {
        "citationStyleUrl": STYLE, "citationClusters": replies,
        "bibliography": "\n".join(bibliography)})


def write_document(folder, count, changed=False):
    library = Library()
    write_clusters(folder, (library.cluster(number) for number in range(count)), changed)


def write_huge_citation(folder, length):
    """Writes a document with one citation of about `length` bytes."""
    library = Library()
    sentences = " ".join(library.sentences)
    repeats = length // len(sentences.encode()) + 1
    write_clusters(folder, [library.cluster(0, sentences * repeats)])


def write_recent_styles(folder, count):
    library = Library()
    write_arguments(folder, [])
    write_json(os.path.join(folder, "reply.json"), {"citationStyles": [
        {"url": f"http://styles.tessaron.example/style-{number}",
         "title": library.random.choice(library.sentences)[:60]} for number in range(count)]})


def write_uuid(folder):
    write_arguments(folder, [])
    write_json(os.path.join(folder, "reply.json"),
               {"uuid": "7d0c5d1c-2f7e-3a55-9c1e-1c2e4c2c9f11"})
