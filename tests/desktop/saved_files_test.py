#!/usr/bin/python3
"""The reader of subtitles, which must not let a broken file pass."""

import unittest

import saved_files
from sample_media import CUES
from steps import Failure

_GOOD = "1\n00:00:00,500 --> 00:00:02,500\nOne.\n\n2\n00:01:03,000 --> 01:00:05,250\nTwo,\nin two lines.\n"


class ReadSrt(unittest.TestCase):
    def test_reads_numbers_times_and_lines(self):
        self.assertEqual(saved_files.read_srt(_GOOD), [saved_files.Cue(0.5, 2.5, "One."),
                                                       saved_files.Cue(63.0, 3605.25, "Two,\nin two lines.")])

    def test_takes_a_byte_order_mark_and_line_ends_of_another_system(self):
        self.assertEqual(len(saved_files.read_srt("\ufeff" + _GOOD.replace("\n", "\r\n"))), 2)

    def test_refuses_what_is_no_subtitle(self):
        broken = {
            "another format": "WEBVTT\n\n00:00.500 --> 00:02.500\nOne.\n",
            "an empty file": "",
            "a wrong number": _GOOD.replace("2\n00:01", "3\n00:01"),
            "a missing text": "1\n00:00:00,500 --> 00:00:02,500\n",
            "a decimal point": _GOOD.replace("00,500", "00.500"),
            "an end before its start": _GOOD.replace("00:00:02,500", "00:00:00,100"),
            "a page of markup": "<html>\n<body>\nNot found\n</body>\n</html>\n",
        }
        for name, text in broken.items():
            with self.subTest(name), self.assertRaises(Failure):
                saved_files.read_srt(text)


class RequireCues(unittest.TestCase):
    def setUp(self):
        self.cues = [saved_files.Cue(*cue) for cue in CUES]

    def test_takes_the_expected_cues(self):
        saved_files.require_cues(self.cues, CUES)

    def test_refuses_a_missing_cue(self):
        with self.assertRaises(Failure):
            saved_files.require_cues(self.cues[1:], CUES)

    def test_refuses_a_cue_at_another_time(self):
        self.cues[1] = saved_files.Cue(self.cues[1].start + 0.5, self.cues[1].end, self.cues[1].text)
        with self.assertRaises(Failure):
            saved_files.require_cues(self.cues, CUES)


if __name__ == "__main__":
    unittest.main()
