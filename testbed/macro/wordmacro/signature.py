"""Removes the digital signature of a package: its parts, and the references to them."""

from lxml import etree

from .failure import Failure

FOLDER = "_xmlsignatures/"
ROOT_RELATIONSHIPS = "_rels/.rels"
CONTENT_TYPES = "[content_types].xml"
ORIGIN = "/digital-signature/origin"


def is_part(name):
    return name.lower().lstrip("/").startswith(FOLDER)


def remove_signature(parts):
    """The parts of a package without those of its signature, and without references to them."""
    if not any(map(is_part, parts)):
        return parts
    kept = {name: data for name, data in parts.items() if not is_part(name)}
    for name, data in kept.items():
        if name.lower() == ROOT_RELATIONSHIPS:
            kept[name] = _remove_elements(name, data, "Type", lambda value: value.endswith(ORIGIN))
        elif name.lower() == CONTENT_TYPES:
            kept[name] = _remove_elements(name, data, "PartName", is_part)
    return kept


def _remove_elements(name, data, attribute, is_removed):
    parser = etree.XMLParser(resolve_entities=False, no_network=True)
    try:
        root = etree.fromstring(data, parser)
    except etree.XMLSyntaxError:
        raise Failure(f"The signature cannot be dropped: the part {name} is not well-formed XML.")
    for element in [e for e in root if isinstance(e.tag, str) and is_removed(e.get(attribute, ""))]:
        root.remove(element)
    return etree.tostring(root, encoding="UTF-8", xml_declaration=True, standalone=True)
