# The importers of the text and date export forms, the format language and the text file reader.
fuzz_target(text_import text_import.cc fundra_text)
