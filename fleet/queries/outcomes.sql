-- SPDX-License-Identifier: Apache-2.0
-- Episodes by what ended them, and how many of these tell how long it took.
SELECT outcome, cured_by, count(*) AS all_episodes,
    sum(CASE WHEN seconds_to_cure >= 0 THEN 1 ELSE 0 END) AS timed
FROM episodes
WHERE (:country = '' OR country = :country) AND begin >= :since
    AND (:signature = '' OR signature = :signature)
GROUP BY outcome, cured_by
ORDER BY outcome, cured_by
