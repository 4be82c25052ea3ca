# SPDX-License-Identifier: MIT
"""Catalogue files of an installation: which one counts, by its version and its place, and what it changes."""


from install_tree import BUILT_IN, BUILT_IN_REPORT, NEWER, NEWEST, OLDER, InstallTree, report
from judging import main


class ByPlace(InstallTree):
    def test_data_folder_of_the_family(self):
        self.put(self.data, NEWER, "family")
        self.assertEqual(self.told(), report("family"))

    def test_data_folder_of_the_version_directory(self):
        self.put(self.version / "dat", NEWER, "version")
        self.assertEqual(self.told(), report("version"))

    def test_current_folder(self):
        self.put(self.here, NEWER, "here")
        self.assertEqual(self.told(), report("here"))

    def test_search_ends_where_there_is_one(self):
        self.put(self.here, NEWEST, "here")
        self.put(self.version / "dat", NEWER, "version")
        self.assertEqual(self.told(), report("version"))
        self.put(self.data, NEWER, "family")
        self.assertEqual(self.told(), report("family"))

    def test_old_one_ends_the_search_too(self):
        self.put(self.here, NEWEST, "here")
        self.put(self.data, OLDER, "old")
        self.assertEqual(self.told(), BUILT_IN_REPORT)

    def test_no_other_folder_is_searched(self):
        for folder in ("bin", "kor", "docs", "etc", "kor/bin", "kor-as/dat", "kor/dat/en"):
            self.put(self.version / folder, NEWER, folder)
        self.put(self.version.parent / "dat", NEWER, "parent")
        self.put(self.version.parent / "kor" / "dat", NEWER, "parent")
        self.assertEqual(self.told(), BUILT_IN_REPORT)


class ByName(InstallTree):
    def test_newest_counts(self):
        self.put(self.data, NEWER, "newer")
        self.put(self.data, NEWEST, "newest")
        self.put(self.data, OLDER, "older")
        self.assertEqual(self.told(), report("newest"))

    def test_versions_are_numbers(self):
        # As a text the shorter one would be the higher.
        self.put(self.data, "9_en.msgs", "nine")
        self.assertEqual(self.told(), BUILT_IN_REPORT)
        self.put(self.data, "100000000000000_en.msgs", "longer")
        self.assertEqual(self.told(), report("longer"))

    def test_equal_to_the_built_in_one(self):
        # Of one version, what lies in the version directory goes first.
        self.put(self.data, BUILT_IN, "family")
        self.assertEqual(self.told(), report("family"))

    def test_equal_to_the_built_in_one_elsewhere(self):
        # Reverse alphabetic order of the paths then, and the built-in one has no folder in front.
        self.put(self.here, BUILT_IN, "here")
        self.assertEqual(self.told(), BUILT_IN_REPORT)

    def test_equal_versions_in_one_folder(self):
        self.put(self.data, "20250101000000_a_en.msgs", "a")
        self.put(self.data, "20250101000000_b_en.msgs", "b")
        self.assertEqual(self.told(), report("b"))

    def test_legacy_name_has_no_version(self):
        self.put(self.data, "en_msgs.txt", "legacy")
        self.put(self.here, NEWER, "here")
        self.assertEqual(self.told(), BUILT_IN_REPORT)  # found, so the search ended; but older than the built-in one
        self.put(self.data, NEWER, "family")
        self.assertEqual(self.told(), report("family"))

    def test_other_names(self):
        wrong = [NEWER.upper(), NEWER + "~", NEWER[:-1], NEWER.replace("_en", "-en"), NEWER.replace("_en", "en")]
        for name in wrong:
            self.put(self.data, name, name)
        self.put(self.data, "x_en_msgs.txt", "legacy")
        self.put(self.here, NEWER, "here")
        self.assertEqual(self.told(), report("here"))

    def test_name_without_a_version(self):
        self.put(self.data, "corrected_en.msgs", "corrected")
        self.assertEqual(self.told(), BUILT_IN_REPORT)

    def test_language_is_english_whatever_the_host_speaks(self):
        self.put(self.data, NEWEST.replace("_en", "_de"), "german")
        self.put(self.data, NEWEST.replace("_en", "_fr"), "french")
        german = {"LANG": "de_DE.UTF-8", "LC_ALL": "de_DE.UTF-8", "LC_MESSAGES": "de_DE.UTF-8", "LANGUAGE": "de"}
        self.assertEqual(self.told(variables=german), BUILT_IN_REPORT)
        self.put(self.data, NEWER, "english")
        self.assertEqual(self.told(variables=german), report("english"))


class Effect(InstallTree):
    def test_types_of_an_installed_catalogue_count(self):
        self.put(self.data, NEWER, "family", kind="E")
        self.assertEqual(self.told(status=1), 'one.hex: (634) family tells of "one.hex"\n')

    def test_levels_of_an_installed_catalogue_count(self):
        self.put(self.data, NEWER, "family", kind="-3")
        self.assertEqual(self.told(), "")
        self.assertEqual(self.told("-w-3"), report("family"))

    def test_option_changes_texts_alone(self):
        self.put(self.data, NEWER, "family")
        self.put(self.here / "new", NEWEST, "option", kind="E")
        self.assertEqual(self.told(f"--edf=new/{NEWEST}"), report("option"))

    def test_option_with_an_older_catalogue(self):
        self.put(self.data, NEWEST, "family")
        self.put(self.here / "new", NEWER, "option")
        self.assertEqual(self.told(f"--edf=new/{NEWER}"), report("family"))
        not_newer = f'"new/{NEWER}" is not newer than "@/tools/v2/kor/dat/{NEWEST}"'
        self.assertEqual(self.traced(f"--edf=new/{NEWER}")[-1], not_newer)

    def test_option_with_an_equal_version(self):
        self.put(self.data, NEWER, "family")
        self.put(self.here / "zz", NEWER, "option")
        self.assertEqual(self.told(f"--edf=zz/{NEWER}"), report("family"))
        not_newer = f'"zz/{NEWER}" is not newer than "@/tools/v2/kor/dat/{NEWER}"'
        self.assertEqual(self.traced(f"--edf=zz/{NEWER}")[-1], not_newer)

    def test_option_with_an_equal_version_of_the_version_directory(self):
        # In force is the one of the current folder; the other's path compares below and is loaded all the same.
        self.put(self.here, NEWER, "here")
        self.put(self.version / "etc", NEWER, "installed")
        self.assertEqual(self.told(), report("here"))
        self.assertEqual(self.told(f"--edf={self.version}/etc/{NEWER}"), report("installed"))

    def test_malformed_line_names_the_catalogue_in_force(self):
        self.data.joinpath(NEWER).write_text('634 0 family tells of "%s"\n\n')
        # Its own newline, and the one that every report gets.
        malformed = f"one.hex: Malformed error information on line 2, in file {BUILT_IN}\n\n"
        self.assertEqual(self.told(), malformed + report("family"))


if __name__ == "__main__":
    main()
