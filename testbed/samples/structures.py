"""The sample with a citation in every place and every form that a Word document allows."""

from docx.opc.constants import RELATIONSHIP_TYPE as RT

from paper import Paper, character, contents, field, instruction, run, simple_field

TRACKED = 'w:author="A. Reader" w:date="2024-03-01T12:00:00Z"'
SHAPE = "http://schemas.microsoft.com/office/word/2010/wordprocessingShape"


def structures(codes):
    paper = Paper("Places where a citation can be")
    paper.paragraph("Code in five runs ", field(codes("turing-1950"), pieces=5), ".")
    paper.paragraph("A simple field ", simple_field(codes("shannon-1948")), ".")
    paper.paragraph("All in one run ", one_run(codes("cook-1971")), ".")
    paper.paragraph("A field without a text ", without_text(codes("noether-1918")), ".")
    table(paper, codes)
    paper.paragraph("Beside a box.", text_box(field(codes("carson-1962"), pieces=2)), " After it.")
    link = paper.document.part.relate_to("https://example.org/", RT.HYPERLINK, is_external=True)
    linked = field(codes("berners-lee-1998"))
    paper.paragraph("A link ", f'<w:hyperlink r:id="{link}">{linked}</w:hyperlink>', ".")
    tracked_changes(paper, codes)
    outer = codes("grice-1975").replace("sample-", "unwritable-")
    paper.paragraph("A field in the text of a citation ", nested(outer), ".")
    with_notes(paper, codes)
    paper.paragraph(
        "Side by side ", field(codes("knuth-1984-texbook")), " ", field(codes("graham-2009")), "."
    )
    paper.paragraph("In italics ", in_italics(codes("bush-1945")), " as a whole.")
    paper.bibliography()
    paper.paragraph("The text goes on after the bibliography.")
    return paper


def tracked_changes(paper, codes):
    inserted = field(codes("kuhn-1962"))
    paper.paragraph("Inserted ", f'<w:ins w:id="901" {TRACKED}>{inserted}</w:ins>', ".")
    paper.paragraph(
        "Deleted ", f'<w:del w:id="902" {TRACKED}>{deleted(codes("darwin-1859"))}</w:del>', "."
    )
    moved = field(codes("einstein-1905-licht"))
    paper.paragraph(
        "Moved ",
        f'<w:moveFrom w:id="903" {TRACKED}>{moved}</w:moveFrom>',
        "here ",
        f'<w:moveTo w:id="904" {TRACKED}>{moved}</w:moveTo>',
        ".",
    )


def with_notes(paper, codes):
    paper.paragraph(
        "A footnote",
        paper.note("footnote", "See ", field(codes("geertz-1973", note=1), pieces=3)),
        " and an endnote",
        paper.note("endnote", "See ", simple_field(codes("star-2010", note=2))),
        ", then the text again ",
        field(codes("brin-page-1998")),
        ".",
    )


def one_run(code):
    """Field characters, code, text and the words around them in a single run."""
    code = instruction(code)[len("<w:r>") : -len("</w:r>")]
    marks = [f'<w:fldChar w:fldCharType="{kind}"/>' for kind in ("begin", "separate", "end")]
    around = '<w:t xml:space="preserve">(so: </w:t>', "<w:t>)</w:t>"
    inside = f"{marks[0]}{code}{marks[1]}<w:t>old</w:t>{marks[2]}"
    return f"<w:r>{around[0]}{inside}{around[1]}</w:r>"


def without_text(code):
    return character("begin") + instruction(code) + character("end")


def deleted(code):
    gone = '<w:r><w:delText xml:space="preserve">(Darwin 1859)</w:delText></w:r>'
    code = instruction(code, "delInstrText")
    return character("begin") + code + character("separate") + gone + character("end")


def nested(code):
    inner = character("begin") + instruction(" ADDIN Other ") + character("separate") + run("1")
    inner += character("end")
    opening = character("begin") + instruction(code) + character("separate")
    return opening + run("(Grice 1975, p. ") + inner + run(")") + character("end")


def in_italics(code):
    return field(code).replace("<w:r>", "<w:r><w:rPr><w:i/></w:rPr>")


def table(paper, codes):
    grid = paper.document.add_table(rows=2, cols=2)
    grid.style = "Table Grid"
    cells = [cell for row in grid.rows for cell in row.cells]
    texts = [("Work",), ("Source",), ("Iris data",), (field(codes("fisher-1936")),)]
    for cell, parts in zip(cells, texts):
        cell.paragraphs[0]._p.extend(contents(parts))
    paper.paragraph("After the table.")


def text_box(inside):
    """A text box as Word stores it: once for newer programs and once for older ones."""
    content = f"<w:txbxContent><w:p>{run('In the box ')}{inside}{run('.')}</w:p></w:txbxContent>"
    new = (
        '<w:drawing><wp:inline distT="0" distB="0" distL="0" distR="0">'
        '<wp:extent cx="2743200" cy="640080"/><wp:docPr id="77" name="Box"/>'
        f'<a:graphic><a:graphicData uri="{SHAPE}"><wps:wsp><wps:cNvSpPr txBox="1"/>'
        '<wps:spPr><a:xfrm><a:off x="0" y="0"/><a:ext cx="2743200" cy="640080"/></a:xfrm>'
        '<a:prstGeom prst="rect"><a:avLst/></a:prstGeom>'
        '<a:ln w="9525"><a:solidFill><a:srgbClr val="000000"/></a:solidFill></a:ln></wps:spPr>'
        f"<wps:txbx>{content}</wps:txbx><wps:bodyPr/></wps:wsp></a:graphicData></a:graphic>"
        "</wp:inline></w:drawing>"
    )
    old = (
        '<w:pict><v:shape style="width:216pt;height:50pt">'
        f"<v:textbox>{content}</v:textbox></v:shape></w:pict>"
    )
    choice = f'<mc:Choice Requires="wps">{new}</mc:Choice>'
    return (
        f"<w:r><mc:AlternateContent>{choice}"
        f"<mc:Fallback>{old}</mc:Fallback></mc:AlternateContent></w:r>"
    )
