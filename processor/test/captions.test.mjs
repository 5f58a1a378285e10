import assert from 'node:assert/strict';
import { test } from 'node:test';

import { hasCues, unroll } from '../src/captions.mjs';

const cue = (number, start, end, ...lines) => `${number}\n00:00:${start} --> 00:00:${end}\n${lines.join('\n')}\n`;
const srt = (...cues) => cues.join('\n');

test('every line of rolling captions comes once, at its own time', () => {
  const rolling = srt(
    cue(1, '00,000', '02,000', 'one'),
    cue(2, '02,000', '02,010', 'one'),
    cue(3, '02,010', '04,000', 'one', 'two'),
    cue(4, '04,000', '04,010', 'two'),
    cue(5, '04,010', '06,000', 'two', 'three'),
  );
  const wanted = srt(
    cue(1, '00,000', '02,000', 'one'),
    cue(2, '02,010', '04,000', 'two'),
    cue(3, '04,010', '06,000', 'three'),
  );
  assert.equal(unroll(rolling), wanted);
  assert.equal(unroll(wanted), wanted);
});

test('captions whose cues overlap are shown one after the other', () => {
  const overlapping = srt(cue(1, '00,000', '05,000', 'one'), cue(2, '02,000', '07,000', 'two'));
  assert.equal(unroll(overlapping), srt(cue(1, '00,000', '02,000', 'one'), cue(2, '02,000', '07,000', 'two')));
});

test('what is said again after a pause is kept', () => {
  const again = srt(cue(1, '00,000', '01,000', 'Yes.'), cue(2, '03,000', '04,000', 'Yes.'));
  assert.equal(unroll(again), again);
});

test('lines that are numbers, blank lines and odd line ends are no trouble', () => {
  const odd = '\ufeff1\r\n00:00:00,000 --> 00:00:01,000\r\n42\r\n \r\n\r\n2\r\n01:02:03,004 --> 100:00:00,000\r\nb\r\n';
  assert.equal(unroll(odd), '1\n00:00:00,000 --> 00:00:01,000\n42\n\n2\n01:02:03,004 --> 100:00:00,000\nb\n');
  assert.equal(unroll(''), '');
});

test('a file without cues says nothing', () => {
  assert.ok(hasCues('WEBVTT\n\n00:01.000 --> 00:02.000\nHello\n'));
  assert.ok(hasCues(cue(1, '00,000', '01,000', 'Hello')));
  for (const text of ['', 'WEBVTT\n', '<html>-->', '1\nHello\n']) assert.ok(!hasCues(text), text);
});
